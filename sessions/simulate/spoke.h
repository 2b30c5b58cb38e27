// The spoke of the simulated radar: 542 bytes, little-endian.
//
//   offset  width  field
//        0      2  5A A5
//        2      2  E0 00
//        4      2  azimuth, 0 to 4095
//        6      2  spokes per revolution, 4096
//        8      4  range in metres
//       12      4  spoke number
//       16      8  time in ms since the Unix epoch
//       24      6  zero
//       30    512  echo samples, 8 bits each, from the antenna outwards
#ifndef KESTOVA_SESSIONS_SIMULATE_SPOKE_H
#define KESTOVA_SESSIONS_SIMULATE_SPOKE_H

#include <cstdint>
#include <string>

#include "sessions/simulate/scene.h"

namespace session
{
constexpr std::size_t cSpokeHeadSize = 30;
constexpr std::size_t cSpokeSize = cSpokeHeadSize + cEchoSamples;
static_assert(cSpokeSize == 542);

// Replaces `bytes` by the spoke of this number.
void encodeSpoke(std::uint64_t spokeNumber, std::uint64_t timeMs, const tEchoes& echoes, std::string& bytes);
}  // namespace session

#endif
