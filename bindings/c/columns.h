// The columns of tables: which sentences are rows of which table, and what they say there.
#ifndef KESTOVA_C_COLUMNS_H
#define KESTOVA_C_COLUMNS_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "KestovaRecordings/sentence.h"

namespace binding
{
// A column is of the type whose function is set. Whole numbers are known in every row.
struct tColumnKind
{
    const char* name;
    std::function<std::int64_t(const recordings::tSentence&)> whole;
    std::function<std::optional<double>(const recordings::tSentence&)> number;
    std::function<std::optional<std::string>(const recordings::tSentence&)> text;
};

struct tTableKind
{
    const char* name;
    bool (*isRow)(const recordings::tSentence& sentence);
    std::vector<tColumnKind> columns;  // without the time
};

// Returns null for a name that is none.
const tTableKind* tableNamed(const std::string& name);
std::string tableNames();  // separated by ", "
}  // namespace binding

#endif
