// The streams of a capture, and what they are to a radar.
#ifndef KESTOVA_SESSIONS_IMPORT_CAPTURESTREAM_H
#define KESTOVA_SESSIONS_IMPORT_CAPTURESTREAM_H

#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "KestovaStorage/radarmsgpackage.h"
#include "sessions/radarchoice.h"

namespace session
{
using tCaptureGroup = std::pair<std::string, int>;  // address and port, as the reader reports them

// The info block of each group of a radar, as a recorder stamps it.
using tRadarStreams = std::map<tCaptureGroup, tUdpMsgInfo>;

// Returns the streams of a radar of a directory, with the groups that all radars share. Throws tFailure if the
// directory or the radar cannot be found.
tRadarStreams radarStreams(const tRadarChoice& radar);

// A stream of a capture over time. Empty datagrams are recorded, but no message: rates and spans leave them out.
struct tCaptureSpan
{
    std::uint64_t datagrams = 0;            // empty ones included
    std::uint64_t firstUs = 0, lastUs = 0;  // the earliest and the latest; 0 if all are empty
    std::uint64_t bytes = 0;

    void add(std::uint64_t timeUs, std::uint64_t len);
};
}  // namespace session

#endif
