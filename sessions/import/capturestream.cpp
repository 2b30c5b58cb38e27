#include "sessions/import/capturestream.h"

#include <algorithm>

#include "KestovaStorage/recordedgroups.h"
#include "UdpSocket/udpsocket.h"

namespace session
{
tRadarStreams radarStreams(const tRadarChoice& radar)
{
    tRadarStreams streams;
    for (const Kestova::tRecordedGroup& group : Kestova::recordedGroups(radar.find()))
        streams.emplace(tCaptureGroup(net::transAddr(group.address.ip), net::NtoHs(group.address.port)), group.msgInfo);
    return streams;
}

void tCaptureSpan::add(std::uint64_t timeUs, std::uint64_t len)
{
    ++datagrams;
    if (len == 0)
        return;
    firstUs = bytes == 0 ? timeUs : std::min(firstUs, timeUs);
    lastUs = std::max(lastUs, timeUs);
    bytes += len;
}
}  // namespace session
