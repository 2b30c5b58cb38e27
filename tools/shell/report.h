// Stream tables as text and as JSON: the same columns for every command.
#ifndef KESTOVA_TOOLS_SHELL_REPORT_H
#define KESTOVA_TOOLS_SHELL_REPORT_H

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "KestovaRecordings/streamcounts.h"

namespace tool
{
class tConsole;

using tJson = nlohmann::ordered_json;

// Returns "stream", "address", WHAT, "bytes", "digest" for each stream; `what` is "datagrams" or "records".
tJson streamsJson(const recordings::tStreamCounts& counts, std::string_view what);
// Returns the same as lines of text with a head and a sum.
std::string streamsText(const recordings::tStreamCounts& counts, std::string_view what);

// Prints one line of JSON. Replaces bytes that are no UTF-8, as in some file names.
void printJson(tConsole& console, const tJson& json);
}  // namespace tool

#endif
