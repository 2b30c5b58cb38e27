#include "KestovaStorage/internal/radar/recordingname.h"

#include <array>
#include <cstdio>

namespace Kestova
{
namespace
{
bool isFileNameChar(char c)
{
    const auto code = static_cast<unsigned char>(c);
    return c != '/' && c != '\\' && code >= 0x20 && code != 0x7F;
}

std::string escaped(const std::string& text)
{
    std::string name;
    for (const char c : text)
    {
        if (isFileNameChar(c))
        {
            name += c;
            continue;
        }
        std::array<char, 4> code;
        std::snprintf(code.data(), code.size(), "%%%02X", static_cast<unsigned char>(c));
        name += code.data();
    }
    return name;
}

std::string letterOf(unsigned short id)
{
    constexpr unsigned short cLetters = 26;
    return id < cLetters ? std::string(1, static_cast<char>('A' + id)) : std::to_string(id);
}
}  // namespace

std::string recordingName(const std::string& serial, unsigned short id)
{
    std::string name = serial;
    const std::size_t colon = name.find(':');
    if (colon != std::string::npos && colon != 0)
        name[colon] = '_';
    return escaped(name) + "_" + letterOf(id);
}
}  // namespace Kestova
