// The kinds of capture: which of them can be read, and how the others become readable.
#ifndef KESTOVA_RECORDINGS_CAPTUREKIND_H
#define KESTOVA_RECORDINGS_CAPTUREKIND_H

#include <cstdint>
#include <string>

#include "UdpSocket/kestovaapi.h"

namespace recordings
{
// Returns why pcap::tPcapReader misreads the file, in one sentence with the way to convert it; empty for a capture of
// Ethernet frames with microsecond stamps. `magic` and `linkType` as in the file's head.
KESTOVA_API std::string whyUnreadable(std::uint32_t magic, std::uint32_t linkType, const std::string& path);

// Throws tFailure with that sentence, or for a file that cannot be opened or is shorter than a capture's head.
KESTOVA_API void requireReadableCapture(const std::string& path);
}  // namespace recordings

#endif
