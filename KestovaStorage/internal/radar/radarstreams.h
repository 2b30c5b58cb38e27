// What a recorder knows about the groups it joins: the info block stamped on their packages and the receive buffer.
//
// Shapes   one row for each of the eighteen stream kinds, and three groups that every recorder joins besides.
// Threads  constants and pure functions.
#ifndef KESTOVA_STORAGE_RADAR_RADARSTREAMS_H
#define KESTOVA_STORAGE_RADAR_RADARSTREAMS_H

#include <array>
#include <cstdint>
#include <vector>

#include "KestovaStorage/radarmsgpackage.h"
#include "KestovaUtils/multiradarclient.h"
#include "UdpSocket/netaddress.h"

namespace Kestova
{
// Indexed by eReadWriteType. Kept: rows 11 to 16 carry the info block of the kind that follows them and row 17 is all
// zero. Recordings have been stamped that way from the start and their readers expect it.
extern const std::array<tUdpSocketInfo, eTotalReadWriteTypes> RadarMsgSocketInfos;

// A group that is joined whatever streams are wanted; its receive buffer is cFixedGroupBuffSize bytes.
struct tFixedGroup
{
    const char* group;
    std::uint16_t port;
    tUdpMsgInfo msgInfo;
};
extern const std::array<tFixedGroup, 3> cFixedGroups;  // in the order in which they are joined
constexpr int cFixedGroupBuffSize = 1024;

// One group to join.
struct tRadarGroup
{
    NetAddress address;
    tUdpMsgInfo msgInfo;
    int recBuffSize;
};

// The group of the multi-radar service, the last of the fixed ones: what arrives there is a sign of life of the
// service, and queries are sent there.
NetAddress serviceGroup();

// The groups to join for the stream kinds `types` of a radar, in their order, then the fixed ones. A kind without an
// address is left out, and so is a group that another kind has already.
std::vector<tRadarGroup> radarGroups(const RadarAddress& radar, const std::vector<eReadWriteType>& types);
}  // namespace Kestova

#endif
