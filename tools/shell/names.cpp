#include "tools/shell/names.h"

#include <fmt/format.h>

namespace tool
{
namespace
{
// Returns the length of the character at the front, 0 if there is none.
std::size_t characterLength(std::string_view text)
{
    const auto at = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = at(0);
    const std::size_t length = first < 0x80 ? 1 : first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first >= 0xF5 || (first >= 0x80 && first < 0xC2) || length > text.size())
        return 0;
    for (std::size_t i = 1; i < length; ++i)
        if ((at(i) & 0xC0u) != 0x80)
            return 0;
    // Longer than necessary, a half of a pair, or beyond the last one.
    const bool isNone = (first == 0xE0 && at(1) < 0xA0) || (first == 0xED && at(1) > 0x9F) ||
                        (first == 0xF0 && at(1) < 0x90) || (first == 0xF4 && at(1) > 0x8F);
    return isNone ? 0 : length;
}
}  // namespace

std::string printable(std::string_view text)
{
    std::string out;
    for (const char c : text)
    {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F)
            out += fmt::format("\\x{:02x}", byte);
        else
            out += c;
    }
    return out;
}

bool isUtf8(std::string_view text)
{
    while (!text.empty())
    {
        const std::size_t length = characterLength(text);
        if (length == 0)
            return false;
        text.remove_prefix(length);
    }
    return true;
}
}  // namespace tool
