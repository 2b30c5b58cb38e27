// The sentences that sensors, the ARPA and AIS transponders send: NMEA 0183 text with its checksum.
#ifndef KESTOVA_SESSIONS_SIMULATE_NMEA_H
#define KESTOVA_SESSIONS_SIMULATE_NMEA_H

#include <cstdint>
#include <string>

#include "sessions/simulate/scene.h"

namespace session
{
// Returns `start` ('$' or '!'), the body, "*", the checksum of the body, CR LF.
std::string nmeaSentence(char start, const std::string& body);

std::string positionSentence(const tMotion& ship, std::uint64_t timeMs);  // GPRMC
std::string fixSentence(const tMotion& ship, std::uint64_t timeMs);       // GPGGA
std::string depthSentence(double metres);                                 // SDDBT
std::string headingSentence(double degrees);                              // HEHDT
// RATTM: target `number` as the ARPA of `ship` tracks it.
std::string trackedTargetSentence(unsigned int number, const tMotion& ship, const tMotion& target,
                                  std::uint64_t timeMs);
// AIVDM with a class A position report (message type 1), armoured in 6-bit characters.
std::string aisPositionSentence(std::uint32_t mmsi, const tMotion& vessel, std::uint64_t timeMs);
}  // namespace session

#endif
