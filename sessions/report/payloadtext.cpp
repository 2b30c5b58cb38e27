#include "sessions/report/payloadtext.h"

#include <algorithm>
#include <fmt/format.h>

namespace session
{
namespace
{
constexpr std::size_t cAddressSize = 5;  // talker and formatter: "GPRMC"

bool isAddressCharacter(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}
}  // namespace

bool holdsSentence(std::string_view bytes)
{
    for (std::size_t at = bytes.find_first_of("$!"); at != std::string_view::npos;
         at = bytes.find_first_of("$!", at + 1))
    {
        const std::string_view address = bytes.substr(at + 1, cAddressSize);
        if (address.size() == cAddressSize && std::ranges::all_of(address, isAddressCharacter) &&
            bytes.substr(at + 1 + cAddressSize).starts_with(','))
            return true;
    }
    return false;
}

std::string escapedText(std::string_view bytes)
{
    bytes = bytes.substr(0, bytes.find_last_not_of('\0') + 1);
    std::string text;
    for (const char c : bytes)
    {
        if (c == '\r')
            text += "\\r";
        else if (c == '\n')
            text += "\\n";
        else if (c == '\t')
            text += "\\t";
        else if (c == '\\')
            text += "\\\\";
        else if (c >= 0x20 && c < 0x7f)
            text += c;
        else
            text += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
    }
    return text;
}
}  // namespace session
