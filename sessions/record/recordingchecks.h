// The checks before and after the start of a recording. They fail with one line, for errors that the library reports in
// several lines or works around.
#ifndef KESTOVA_SESSIONS_RECORD_RECORDINGCHECKS_H
#define KESTOVA_SESSIONS_RECORD_RECORDINGCHECKS_H

#include <cstdint>
#include <string>
#include <vector>

#include "UdpSocket/netaddress.h"

namespace session
{
// Checks that each group can be joined (localIp 0: on the interface that the kernel chooses). Throws tFailure for the
// first one that cannot.
void requireJoinable(const std::vector<NetAddress>& groups, std::uint32_t localIp);

// Checks that each group can be joined (localIp 0: on the interface that the kernel chooses), creates the storage root
// if it is missing, and returns its path in normal form. Throws tFailure for the first group that cannot be joined, and
// for a root that is no folder or not writable, because the library would record into ./RadarDataStorage instead. A
// failure leaves nothing behind.
std::string prepareRecording(const std::vector<NetAddress>& groups, std::uint32_t localIp, const std::string& folder);

// Throws tFailure unless the file exists below the root.
void requireFileBelow(const std::string& root, const std::string& file);
}  // namespace session

#endif
