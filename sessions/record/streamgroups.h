// The streams that a recorder receives, with their groups.
#ifndef KESTOVA_SESSIONS_RECORD_STREAMGROUPS_H
#define KESTOVA_SESSIONS_RECORD_STREAMGROUPS_H

#include <vector>

#include "KestovaRecordings/streamchoice.h"
#include "KestovaRecordings/streamcounts.h"
#include "UdpSocket/netaddress.h"
#include "sessions/radarchoice.h"

namespace session
{
struct tStreamGroup
{
    NetAddress address;
    tReadWriteType kind;
    bool isShared;  // by all radars: it carries other radars' messages, too, and recorders' queries

    recordings::tStreamKey key() const;
};

// Returns the chosen streams that the radar has an address for, then the groups that all radars share. Two streams may
// have one group. Throws tFailure if no chosen stream has an address.
std::vector<tStreamGroup> streamGroups(const tRadarChoice& radar, const recordings::tStreamChoice& streams);

// Returns these groups as streams of the kind otherType, each once.
std::vector<tStreamGroup> streamGroups(const std::vector<NetAddress>& groups);
}  // namespace session

#endif
