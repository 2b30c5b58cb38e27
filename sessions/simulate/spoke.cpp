#include "sessions/simulate/spoke.h"

#include <cstring>

namespace session
{
void storeLittleEndian(std::string& bytes, std::size_t offset, std::uint64_t value, std::size_t width)
{
    for (std::size_t i = 0; i < width; ++i)
        bytes[offset + i] = static_cast<char>(value >> (8 * i) & 0xff);
}

void encodeSpoke(std::uint64_t spokeNumber, std::uint64_t timeMs, const tEchoes& echoes, std::string& bytes)
{
    bytes.assign(cSpokeSize, '\0');
    storeLittleEndian(bytes, 0, 0xa55a, 2);
    storeLittleEndian(bytes, 2, 0x00e0, 2);
    storeLittleEndian(bytes, 4, spokeNumber % cSpokesPerRevolution, 2);
    storeLittleEndian(bytes, 6, cSpokesPerRevolution, 2);
    storeLittleEndian(bytes, 8, cRangeMetres, 4);
    storeLittleEndian(bytes, 12, spokeNumber, 4);
    storeLittleEndian(bytes, 16, timeMs, 8);
    std::memcpy(&bytes[cSpokeHeadSize], echoes.data(), echoes.size());
}
}  // namespace session
