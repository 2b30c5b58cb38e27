#include "sessions/monitor/listening.h"

#include <chrono>

#include "sessions/record/addressfollower.h"

namespace session
{
std::vector<tStreamGroup> wantedStreams(const tRecordOptions& options)
{
    return options.groups.empty() ? streamGroups(options.radar, options.streams) : streamGroups(options.groups);
}

std::uint32_t receivingAddress(const tRecordOptions& options)
{
    if (!options.localIp.empty())
        return localAddress(options.localIp);
    if (!options.groups.empty())
        return 0;
    const tAddressFollower follower;
    follower.waitForFirst(std::chrono::seconds(5));
    return follower.last().localIp;
}

std::vector<NetAddress> addressesOf(const std::vector<tStreamGroup>& groups)
{
    std::vector<NetAddress> addresses;
    addresses.reserve(groups.size());
    for (const tStreamGroup& group : groups)
        addresses.push_back(group.address);
    return addresses;
}
}  // namespace session
