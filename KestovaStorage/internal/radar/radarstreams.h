// The groups that a recorder joins: the info block stamped on their packages, and their receive buffers.
//
// Shapes   one row for each of the eighteen stream kinds; the groups of servicegroups.h are joined besides.
// Threads  constants and pure functions.
#ifndef KESTOVA_STORAGE_RADAR_RADARSTREAMS_H
#define KESTOVA_STORAGE_RADAR_RADARSTREAMS_H

#include <array>
#include <cstdint>
#include <vector>

#include "KestovaStorage/radarmsgpackage.h"
#include "KestovaStorage/servicegroups.h"
#include "KestovaUtils/multiradarclient.h"
#include "UdpSocket/netaddress.h"

namespace Kestova
{
// Indexed by eReadWriteType. Kept: rows 11 to 16 carry the info block of the kind that follows them and row 17 is all
// zero. Recordings have been stamped that way from the start and their readers expect it.
extern const std::array<tUdpSocketInfo, eTotalReadWriteTypes> RadarMsgSocketInfos;

constexpr int cServiceGroupBuffSize = 1024;  // receive buffer of a service group, in bytes

// One group to join.
struct tRadarGroup
{
    NetAddress address;
    tUdpMsgInfo msgInfo;
    int recBuffSize;
};

// The address of eMultiRadarServiceGroup, made once: compared with every datagram's.
const NetAddress& multiRadarServiceAddress();

// Returns the groups to join for the stream kinds `types` of a radar, in their order, then the service groups. A kind
// without an address is left out, and so is a group that another kind has already.
std::vector<tRadarGroup> radarGroups(const RadarAddress& radar, const std::vector<eReadWriteType>& types);
}  // namespace Kestova

#endif
