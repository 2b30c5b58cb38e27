// The spoke of the simulated radar in the public standard for radar video: one block of 547 bytes.
#ifndef KESTOVA_SESSIONS_SIMULATE_CAT240SPOKE_H
#define KESTOVA_SESSIONS_SIMULATE_CAT240SPOKE_H

#include <cstdint>
#include <string>

#include "sessions/simulate/scene.h"

namespace session
{
// Replaces `bytes` by the spoke of this number in ASTERIX category 240; SAC is 0, SIC `sic`.
void encodeCat240Spoke(std::uint64_t spokeNumber, std::uint64_t timeMs, const tEchoes& echoes, std::uint8_t sic,
                       std::string& bytes);
}  // namespace session

#endif
