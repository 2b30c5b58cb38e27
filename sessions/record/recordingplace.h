// Checks what must be right before a recording starts, while a failure is still one line.
#ifndef KESTOVA_SESSIONS_RECORD_RECORDINGPLACE_H
#define KESTOVA_SESSIONS_RECORD_RECORDINGPLACE_H

#include <cstdint>
#include <string>
#include <vector>

#include "UdpSocket/netaddress.h"

namespace session
{
// Makes sure that each group can be joined (localIp 0: on the interface that the kernel chooses), then makes the
// storage root if it is missing and returns it as the library wants it. Throws tFailure for the first group that
// cannot be joined, and for a root that is no folder or may not be written: the library would record into
// ./RadarDataStorage instead. Nothing is left behind by a failure.
std::string prepareRecording(const std::vector<NetAddress>& groups, std::uint32_t localIp, const std::string& folder);

// Throws tFailure unless the file is there and below the root.
void requireFileBelow(const std::string& root, const std::string& file);
}  // namespace session

#endif
