#include "sessions/record/streamgroups.h"

#include <algorithm>
#include <fmt/format.h>

#include "KestovaRecordings/failure.h"
#include "KestovaStorage/servicegroups.h"
#include "UdpSocket/udpsocket.h"

namespace session
{
using namespace recordings;

namespace
{
// No selected stream has an address in the radar's record.
[[noreturn]] void failStreams(const tRadarChoice& radar, const tStreamChoice& streams)
{
    if (streams.includesAll())
        throw tFailure(fmt::format("radar {} with id {} has no stream with an address: add one to {}", radar.serial,
                                   radar.id, radar.directory));
    for (const tServiceGroup& group : cServiceGroups)
    {
        const tReadWriteType kind = group.msgInfo.rwType;
        if (streams.includes(kind))
            throw tFailure(
                fmt::format("{} is recorded with any stream of the radar: add one to --streams", streamTitle(kind)));
    }
    throw tFailure("the radar has no address for any of the selected streams: choose other --streams");
}
}  // namespace

tStreamKey tStreamGroup::key() const
{
    return tStreamKey::of(kind, address.ip, net::NtoHs(address.port));
}

std::vector<tStreamGroup> streamGroups(const tRadarChoice& radar, const tStreamChoice& streams)
{
    const RadarAddress address = radar.find();
    std::vector<tStreamGroup> found;
    for (tReadWriteType kind = 0; kind < eTotalReadWriteTypes; ++kind)
    {
        const NetAddress group = address.streamAddress(kind);
        if (streams.includes(kind) && group.ip != 0 && group.port != 0)
            found.push_back({group, kind, false});
    }
    if (found.empty())
        failStreams(radar, streams);
    for (const tServiceGroup& group : cServiceGroups)
        found.push_back({serviceAddress(group), group.msgInfo.rwType, true});
    return found;
}

std::vector<tStreamGroup> streamGroups(const std::vector<NetAddress>& groups)
{
    std::vector<tStreamGroup> found;
    for (const NetAddress& group : groups)
    {
        const auto same = [&](const tStreamGroup& one) { return one.address == group; };
        if (std::none_of(found.begin(), found.end(), same))
            found.push_back({group, eOtherType, false});
    }
    return found;
}
}  // namespace session
