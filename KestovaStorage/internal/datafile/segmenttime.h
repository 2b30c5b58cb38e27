// When a segment was recorded, and the tag that carries it through the queue.
//
// Shapes   a tag has the time in ms below 2^48, 0 meaning the time of writing, and above it the microseconds within
// that
//          millisecond plus one, 0 if they are not known: a time in ms alone is a tag.
#ifndef KESTOVA_STORAGE_DATAFILE_SEGMENTTIME_H
#define KESTOVA_STORAGE_DATAFILE_SEGMENTTIME_H

#include <chrono>
#include <cstdint>

#include "KestovaStorage/datafileformat.h"
#include "KestovaStorage/finetimesformat.h"

namespace storage
{
struct tSegmentTime
{
    std::uint64_t ms;
    std::uint16_t us = cNoFineTime;  // within it, 0 to 999

    // Of the microseconds since the epoch, 0 meaning now.
    static tSegmentTime fine(std::uint64_t us)
    {
        if (us == 0)
        {
            const auto now = std::chrono::system_clock::now().time_since_epoch();
            us = static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(now).count());
        }
        return {us / 1000, static_cast<std::uint16_t>(us % 1000)};
    }
};

constexpr unsigned int cTagTimeBits = 48;
static_assert(cTimeLimit == std::uint64_t{1} << cTagTimeBits);

constexpr std::uint64_t tagOf(const tSegmentTime& time)  // below cTimeLimit
{
    return time.ms | std::uint64_t{static_cast<std::uint16_t>(time.us + 1)} << cTagTimeBits;
}
constexpr std::uint64_t timeOfTag(std::uint64_t tag)
{
    return tag & (cTimeLimit - 1);
}
constexpr std::uint16_t fineTimeOfTag(std::uint64_t tag)
{
    return static_cast<std::uint16_t>((tag >> cTagTimeBits) - 1);
}
static_assert(tagOf({1, cNoFineTime}) == 1 && fineTimeOfTag(1) == cNoFineTime && fineTimeOfTag(tagOf({1, 999})) == 999);
}  // namespace storage

#endif
