// The messages of the simulated radar in its own format, except its spokes.
#ifndef KESTOVA_SESSIONS_SIMULATE_MESSAGES_H
#define KESTOVA_SESSIONS_SIMULATE_MESSAGES_H

#include <cstdint>
#include <string>

namespace session
{
// 129 bytes: 03 C4, serial at 2 (up to 16 bytes), u32 range at 20, u16 gain, sea and rain at 24, 26 and 28, u16 tenths
// of revolutions a minute at 30, u64 time in ms at 114; the rest zero.
std::string imageStateMessage(const std::string& serial, double rpm, std::uint64_t timeMs);
// 32 bytes: 04 C4, u16 number of targets at 2, u64 time in ms at 8; the rest zero.
std::string arpaStateMessage(std::uint16_t targets, std::uint64_t timeMs);
// 222 bytes: 01 B2, serial at 2 (blank-filled to 16), u16 id at 18, u64 time in ms at 24; the rest zero.
std::string serviceMessage(const std::string& serial, unsigned short id, std::uint64_t timeMs);
// 36 bytes: 01 B3, serial and id as in the service message.
std::string negotiationMessage(const std::string& serial, unsigned short id);
}  // namespace session

#endif
