// tCheck: one thing that was looked at before a voyage, and what was found.
#ifndef KESTOVA_SESSIONS_CHECK_CHECK_H
#define KESTOVA_SESSIONS_CHECK_CHECK_H

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "KestovaRecordings/streamcounts.h"

namespace session
{
enum class eCheckResult
{
    eOk,
    eWarn,  // recording works, but not as well as it could, or perhaps not
    eFail   // recording does not start, or records nothing
};

struct tCheck
{
    std::string name;  // "interface"; see docs/commandline.md
    eCheckResult result = eCheckResult::eOk;
    std::string message;                             // one sentence
    std::string command;                             // what mends it, to be typed; empty for eOk
    std::optional<recordings::tStreamKey> stream{};  // of a check of one stream
};
using tChecks = std::vector<tCheck>;

inline tCheck ok(std::string name, std::string message)
{
    return {std::move(name), eCheckResult::eOk, std::move(message), "", {}};
}
inline tCheck warning(std::string name, std::string message, std::string command)
{
    return {std::move(name), eCheckResult::eWarn, std::move(message), std::move(command), {}};
}
inline tCheck failure(std::string name, std::string message, std::string command)
{
    return {std::move(name), eCheckResult::eFail, std::move(message), std::move(command), {}};
}

eCheckResult worst(const tChecks& checks);

std::string quoted(const std::string& text);  // for a shell, where it would split or change the text
}  // namespace session

#endif
