// Texts as the formats of exports have them, appended to what is there.
#ifndef KESTOVA_RECORDINGS_INTERNAL_EXPORTS_EXPORTTEXTS_H
#define KESTOVA_RECORDINGS_INTERNAL_EXPORTS_EXPORTTEXTS_H

#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>

namespace recordings
{
// The shortest digits that give the number back.
template <typename tNumber>
void appendNumber(tNumber value, std::string& to)
{
    char digits[32];
    to.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
}

// With seven decimals, a centimetre; without zeros at its end.
void appendDegrees(double degrees, std::string& to);
std::string utcText(std::uint64_t timeMs);                 // "2024-05-17T08:30:00.250Z"
std::string asciiText(std::string_view text);              // what is not printable ASCII as "\x1b"
void appendJson(std::string_view ascii, std::string& to);  // in quotes
}  // namespace recordings

#endif
