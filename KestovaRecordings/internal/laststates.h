// lastStates: what a display has to know where it starts in the middle of a recording: the last record before that
// time, of every stream but images.
#ifndef KESTOVA_RECORDINGS_INTERNAL_LASTSTATES_H
#define KESTOVA_RECORDINGS_INTERNAL_LASTSTATES_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "KestovaRecordings/internal/inputfiles.h"
#include "KestovaRecordings/streamcounts.h"

namespace recordings
{
struct tLastState
{
    const tInputFile* input;
    std::size_t record;    // of the file
    std::uint64_t timeMs;  // when it was recorded
};

using tIncludesStream = std::function<bool(const tStreamKey&)>;

// Returns the states in the order in which they were recorded. Looks at heads of packages from `startMs` backwards,
// until each stream that the sheets name has been found; of files without a sheet at all of them. Segments that are no
// packages are no state. Streams that a radar's sheet knows by their group as others than images count as those: a
// recorder stamps some of them like images. Throws what `goOn` throws, which is called now and then.
std::vector<tLastState> lastStates(const tInputFiles& inputs, std::uint64_t startMs, const tIncludesStream& includes,
                                   const std::function<void()>& goOn);
}  // namespace recordings

#endif
