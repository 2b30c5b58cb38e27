// tSentence: what an NMEA 0183 sentence says.
#ifndef KESTOVA_RECORDINGS_SENTENCE_H
#define KESTOVA_RECORDINGS_SENTENCE_H

#include <cstdint>
#include <optional>
#include <string>

#include "KestovaUtils/spokelayout.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
// Numbers are absent where the sentence has none, has one that is out of range, or says that it is not to be used.
// Bearings and courses are clockwise, 0 to 360.
struct tSentence
{
    std::string talker;  // "GP"
    std::string type;    // "RMC"
    bool valid = false;  // its checksum is there and right

    std::optional<double> latitudeDeg, longitudeDeg;  // of own ship or, with a target or an mmsi, of that one
    std::optional<double> speedKn, courseDeg;         // over ground; of the same
    std::optional<double> headingDeg;                 // true
    std::optional<double> depthM;                     // below the surface, as far as the sentence has the offset
    std::optional<std::uint64_t> utcMs;               // since the Unix epoch
    std::optional<unsigned> target;                   // number of a target that the radar tracks
    char targetStatus = 0;                            // L lost, Q being acquired, T tracked; 0: not said
    std::optional<double> distanceNm, bearingDeg;     // of the target from own ship
    utils::tBearingReference bearingReference = utils::eReferenceUnknown;
    std::optional<std::uint32_t> mmsi;
    std::optional<unsigned> aisType;
    std::optional<std::string> shipName;  // in ASCII, without padding
};
}  // namespace recordings

#endif
