// The checks of the disk and of the clock.
#ifndef KESTOVA_SESSIONS_CHECK_MACHINECHECKS_H
#define KESTOVA_SESSIONS_CHECK_MACHINECHECKS_H

#include <cstdint>
#include <optional>
#include <string>

#include "sessions/check/check.h"

namespace session
{
struct tDiskRoom
{
    std::string folder;           // the storage root, or the nearest folder above it that exists
    int error = 0;                // errno if nothing can be made there
    std::uint64_t freeBytes = 0;  // for this user
};
tDiskRoom diskRoom(const std::string& root);

// `bytesPerSecond` is what would be recorded; 0 if nothing was heard.
tCheck checkDiskRoom(const std::string& root, const tDiskRoom& room, double bytesPerSecond);

// Writes up to 64 MiB, for a second, into a file without a name, and syncs it. Returns bytes a second; nothing if that
// fails. Leaves nothing behind.
std::optional<double> writingSpeed(const tDiskRoom& room);
tCheck checkDiskSpeed(const std::string& root, std::optional<double> speed, double bytesPerSecond);

struct tClockState
{
    bool isKnown = false;
    bool isSynchronised = false;
    double errorMs = 0.0;  // at most, as the kernel estimates it
};
tClockState clockState();
tCheck checkClock(const tClockState& clock);
}  // namespace session

#endif
