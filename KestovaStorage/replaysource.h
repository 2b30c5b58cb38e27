// What a replay of storage::tDataStorageIO plays after the span that was opened: segments that are still being
// recorded.
#ifndef KESTOVA_REPLAYSOURCE_H
#define KESTOVA_REPLAYSOURCE_H

#include <stddef.h>
#include <stdint.h>

#include "UdpSocket/kestovaapi.h"

namespace storage
{
// A file of the opened span. Its index slots below `records` have been played, or are damaged.
struct tReplayedFile
{
    const char* path;
    size_t records;
};

struct tReplaySourceSegment
{
    uint64_t timeMs;
    int us;  // microseconds within timeMs, 0 to 999; -1 where they are not known
    const char* data;
    uint32_t len;
    const char* fileName;  // of the data file that it is in
};

// Calls come from the replay thread, with no lock held. Must not throw.
class KESTOVA_API iReplaySource
{
public:
    virtual ~iReplaySource() = default;
    // The opened span has been played. Called again after a jump back, when it has been played again: the segments
    // then come again, too.
    virtual void Begin(const tReplayedFile* files, size_t count) = 0;
    // Sets the next segment, valid until the next call, in the order of recording. Returns false while there is none.
    virtual bool Next(tReplaySourceSegment& segment) = 0;
    // After Next() returned false: whether none will follow, so that playing ends.
    virtual bool Over() = 0;
};
}  // namespace storage

#endif
