#include "sessions/check/check.h"

#include <algorithm>

namespace session
{
eCheckResult worst(const tChecks& checks)
{
    eCheckResult result = eCheckResult::eOk;
    for (const tCheck& check : checks)
        result = std::max(result, check.result);
    return result;
}

std::string quoted(const std::string& text)
{
    constexpr char cPlain[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./:,@%+=";
    if (!text.empty() && text.find_first_not_of(cPlain) == std::string::npos)
        return text;
    std::string out = "'";
    for (const char c : text)
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}
}  // namespace session
