// What kind of message a datagram is, by its destination and its first bytes.
#ifndef KESTOVA_STORAGE_CAPTURE_DATAGRAMKIND_H
#define KESTOVA_STORAGE_CAPTURE_DATAGRAMKIND_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "KestovaStorage/internal/capture/destination.h"

namespace pcap
{
enum class eMessageKind : std::uint8_t
{
    eSpoke,
    eOriSpoke,
    eSpokeOriSpoke,
    eRadarCtrl,
    eRadarState,
    eRattm,
    eRhttm,
    eIns,
    eUnknow
};
constexpr std::size_t cKindCount = 9;

const char* kindText(eMessageKind kind);  // as statistics show it

// Returns the kind of a payload. Throws std::out_of_range for one of a spoke's length (542, 2078, 2620) whose first or
// second byte is zero: its text, which ends before the first zero byte, has no third byte.
eMessageKind udpType(tDestination stream, std::string_view payload);

// What the datagrams to an address are counted as at the end of a read.
enum class eTraffic : std::uint8_t
{
    eOther,
    eTargets,       // target messages of the radar's own processor
    eLocalTargets,  // target messages on the ship's network
    eSpokes,
    eControl,
    eSensor,  // sentences of AIS, GPS, depth and heading devices
    eLocalSensor
};

eTraffic trafficTo(tDestination stream);

constexpr int cSpokeLength = 542, cOriSpokeLength = 2078, cSpokeOriSpokeLength = 2620;
constexpr std::string_view cRattmPrefix = "\xA0\x04$RATTM", cRhttmPrefix = "\xA0\x04$RHTTM";
}  // namespace pcap

#endif
