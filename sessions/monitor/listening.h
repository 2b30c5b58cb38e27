// What a recorder with these options would receive, and where.
#ifndef KESTOVA_SESSIONS_MONITOR_LISTENING_H
#define KESTOVA_SESSIONS_MONITOR_LISTENING_H

#include <cstdint>
#include <vector>

#include "sessions/record/recordsession.h"
#include "sessions/record/streamgroups.h"

namespace session
{
// Returns the streams of the options' radar, or groups. Throws tFailure if there is no such radar.
std::vector<tStreamGroup> wantedStreams(const tRecordOptions& options);

// Returns the address of the interface that the options name. Without one: for a radar the interface of the default
// route, or 0 while it has no address; for groups 0, the kernel chooses. Throws tFailure if there is no such interface.
std::uint32_t receivingAddress(const tRecordOptions& options);

std::vector<NetAddress> addressesOf(const std::vector<tStreamGroup>& groups);
}  // namespace session

#endif
