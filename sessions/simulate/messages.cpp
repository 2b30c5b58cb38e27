#include "sessions/simulate/messages.h"

#include <cmath>

#include "sessions/simulate/scene.h"
#include "sessions/simulate/spoke.h"

namespace session
{
namespace
{
constexpr std::size_t cSerialOffset = 2;
constexpr std::size_t cSerialSize = 16;

std::string message(std::size_t size, std::uint16_t mark)
{
    std::string bytes(size, '\0');
    storeLittleEndian(bytes, 0, mark, 2);
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
    storeLittleEndian(bytes, 20, cRangeMetres, 4);
    storeLittleEndian(bytes, 24, 60, 2);
    storeLittleEndian(bytes, 26, 35, 2);
    storeLittleEndian(bytes, 28, 10, 2);
    storeLittleEndian(bytes, 30, static_cast<std::uint64_t>(std::llround(rpm * 10.0)), 2);
    storeLittleEndian(bytes, 114, timeMs, 8);
    return bytes;
}

std::string arpaStateMessage(std::uint16_t targets, std::uint64_t timeMs)
{
    std::string bytes = message(32, 0xc404);
    storeLittleEndian(bytes, 2, targets, 2);
    storeLittleEndian(bytes, 8, timeMs, 8);
    return bytes;
}

std::string serviceMessage(const std::string& serial, unsigned short id, std::uint64_t timeMs)
{
    std::string bytes = message(222, 0xb201);
    storeSerial(bytes, serial);
    storeLittleEndian(bytes, 18, id, 2);
    storeLittleEndian(bytes, 24, timeMs, 8);
    return bytes;
}

std::string negotiationMessage(const std::string& serial, unsigned short id)
{
    std::string bytes = message(36, 0xb301);
    storeSerial(bytes, serial);
    storeLittleEndian(bytes, 18, id, 2);
    return bytes;
}
}  // namespace session
