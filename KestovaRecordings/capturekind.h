// Which captures can be read, and what to do about the others.
#ifndef KESTOVA_RECORDINGS_CAPTUREKIND_H
#define KESTOVA_RECORDINGS_CAPTUREKIND_H

#include <cstdint>
#include <string>

namespace tool
{
// One sentence for a file that the reader would misread: what it is and how it becomes one that can be read. Empty for
// a capture of Ethernet frames with microsecond stamps. Magic and link type as they stand in the file's head.
std::string whyUnreadable(std::uint32_t magic, std::uint32_t linkType, const std::string& path);

// Throws tFailure with that sentence, or for what cannot be opened or is shorter than a capture's head.
void requireReadableCapture(const std::string& path);
}  // namespace tool

#endif
