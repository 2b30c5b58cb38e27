#include "sessions/simulate/spoke.h"

#include <cstring>

#include "common/byteorder.h"

namespace session
{
void encodeSpoke(std::uint64_t spokeNumber, std::uint64_t timeMs, const tEchoes& echoes, std::string& bytes)
{
    bytes.assign(cSpokeSize, '\0');
    le::store<std::uint16_t>(&bytes[0], 0xa55a);
    le::store<std::uint16_t>(&bytes[2], 0x00e0);
    le::store(&bytes[4], static_cast<std::uint16_t>(spokeNumber % cSpokesPerRevolution));
    le::store<std::uint16_t>(&bytes[6], cSpokesPerRevolution);
    le::store<std::uint32_t>(&bytes[8], cRangeMetres);
    le::store(&bytes[12], static_cast<std::uint32_t>(spokeNumber));
    le::store(&bytes[16], timeMs);
    std::memcpy(&bytes[cSpokeHeadSize], echoes.data(), echoes.size());
}
}  // namespace session
