// Radar message packages for tests, written field by field and independent of the library's own writing.
#ifndef KESTOVA_TESTS_RADARPACKAGES_H
#define KESTOVA_TESTS_RADARPACKAGES_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "KestovaStorage/radarmsgpackage.h"

inline std::string littleEndian(std::uint64_t value, std::size_t bytes)
{
    std::string text;
    for (std::size_t i = 0; i < bytes; ++i)
        text += static_cast<char>(value >> (8 * i) & 0xff);
    return text;
}

// A whole package of `type`; msgLen may lie about the payload.
inline std::string makePackage(std::uint32_t number, const std::string& payload, tMsgType type, std::size_t msgLen)
{
    const std::string info{1, 2, static_cast<char>(type), 3, 4};
    return "Quorvale" + info + littleEndian(number, 4) + littleEndian(0x010011ef, 4) + littleEndian(6001, 2) +
           littleEndian(1'700'000'000'123, 8) + littleEndian(msgLen, 2) + payload + "ZQ_Radar";
}

inline std::string makePackage(std::uint32_t number, const std::string& payload = "", tMsgType type = eRadarClientType)
{
    return makePackage(number, payload, type, payload.size());
}

#endif
