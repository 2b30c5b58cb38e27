// What a recorder stamps on the packages of each group of a radar, for programs that make recordings of other sources.
#ifndef KESTOVA_RECORDEDGROUPS_H
#define KESTOVA_RECORDEDGROUPS_H

#include <vector>

#include "KestovaStorage/radarmsgpackage.h"
#include "KestovaUtils/multiradarclient.h"
#include "UdpSocket/kestovaapi.h"
#include "UdpSocket/netaddress.h"

namespace Kestova
{
struct tRecordedGroup
{
    NetAddress address;
    tUdpMsgInfo msgInfo;  // the info block of its packages
};

// Returns the groups that tRadarDataSaver joins for a radar if all stream kinds are chosen: those of the radar, in the
// order of their kinds, then the groups that all radars share. A group that two kinds have is recorded as the first of
// them. Any thread.
KESTOVA_API std::vector<tRecordedGroup> recordedGroups(const RadarAddress& radar);
}  // namespace Kestova

#endif
