#include "KestovaRecordings/internal/exports/exporttexts.h"

#include <algorithm>
#include <ctime>
#include <fmt/format.h>

namespace recordings
{
namespace
{
bool isPrintable(char c)
{
    return c >= 0x20 && c < 0x7F;
}
}  // namespace

void appendDegrees(double degrees, std::string& to)
{
    char digits[32];
    char* end = std::to_chars(digits, digits + sizeof digits, degrees, std::chars_format::fixed, 7).ptr;
    while (end[-1] == '0' && end[-2] != '.')
        --end;
    to.append(digits, end);
}

std::string utcText(std::uint64_t timeMs)
{
    const auto seconds = static_cast<std::time_t>(timeMs / 1000);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", parts.tm_year + 1900, parts.tm_mon + 1,
                       parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec, timeMs % 1000);
}

std::string asciiText(std::string_view text)
{
    if (std::all_of(text.begin(), text.end(), isPrintable))
        return std::string(text);
    std::string ascii;
    for (const char c : text)
        if (isPrintable(c))
            ascii += c;
        else
            ascii += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
    return ascii;
}

void appendJson(std::string_view ascii, std::string& to)
{
    to += '"';
    for (const char c : ascii)
    {
        if (c == '"' || c == '\\')
            to += '\\';
        to += c;
    }
    to += '"';
}
}  // namespace recordings
