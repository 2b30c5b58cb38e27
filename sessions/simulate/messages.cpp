#include "sessions/simulate/messages.h"

#include <cmath>

#include "common/byteorder.h"
#include "sessions/simulate/scene.h"

namespace session
{
namespace
{
constexpr std::size_t cSerialOffset = 2;
constexpr std::size_t cSerialSize = 16;

std::string message(std::size_t size, std::uint16_t mark)
{
    std::string bytes(size, '\0');
    le::store<std::uint16_t>(&bytes[0], mark);
    return bytes;
}

void storeSerial(std::string& bytes, const std::string& serial)
{
    std::string field = serial.substr(0, cSerialSize);
    field.resize(cSerialSize, ' ');
    bytes.replace(cSerialOffset, cSerialSize, field);
}
}  // namespace

std::string imageStateMessage(const std::string& serial, double rpm, std::uint64_t timeMs)
{
    std::string bytes = message(129, 0xc403);
    storeSerial(bytes, serial);
    le::store<std::uint32_t>(&bytes[20], cRangeMetres);
    le::store<std::uint16_t>(&bytes[24], 60);
    le::store<std::uint16_t>(&bytes[26], 35);
    le::store<std::uint16_t>(&bytes[28], 10);
    le::store<std::uint16_t>(&bytes[30], static_cast<std::uint16_t>(std::llround(rpm * 10.0)));
    le::store<std::uint64_t>(&bytes[114], timeMs);
    return bytes;
}

std::string arpaStateMessage(std::uint16_t targets, std::uint64_t timeMs)
{
    std::string bytes = message(32, 0xc404);
    le::store<std::uint16_t>(&bytes[2], targets);
    le::store<std::uint64_t>(&bytes[8], timeMs);
    return bytes;
}

std::string serviceMessage(const std::string& serial, unsigned short id, std::uint64_t timeMs)
{
    std::string bytes = message(222, 0xb201);
    storeSerial(bytes, serial);
    le::store<std::uint16_t>(&bytes[18], id);
    le::store<std::uint64_t>(&bytes[24], timeMs);
    return bytes;
}

std::string negotiationMessage(const std::string& serial, unsigned short id)
{
    std::string bytes = message(36, 0xb301);
    storeSerial(bytes, serial);
    le::store<std::uint16_t>(&bytes[18], id);
    return bytes;
}
}  // namespace session
