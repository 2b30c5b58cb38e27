// The tag of a queued segment: its time in ms below 2^48, 0 meaning the time of writing, and above it the microseconds
// within that millisecond plus one, 0 if they are not known: a time in ms alone is a tag.
#ifndef KESTOVA_STORAGE_DATAFILE_SEGMENTTAG_H
#define KESTOVA_STORAGE_DATAFILE_SEGMENTTAG_H

#include <cstdint>

#include "KestovaStorage/datafileformat.h"
#include "KestovaStorage/finetimesformat.h"

namespace storage
{
constexpr unsigned int cTagTimeBits = 48;
static_assert(cTimeLimit == std::uint64_t{1} << cTagTimeBits);

constexpr std::uint64_t tagOf(std::uint64_t timeMs, std::uint16_t us)
{
    return timeMs | std::uint64_t{static_cast<std::uint16_t>(us + 1)} << cTagTimeBits;
}
constexpr std::uint64_t timeOfTag(std::uint64_t tag)
{
    return tag & (cTimeLimit - 1);
}
constexpr std::uint16_t fineTimeOfTag(std::uint64_t tag)
{
    return static_cast<std::uint16_t>((tag >> cTagTimeBits) - 1);
}
static_assert(fineTimeOfTag(tagOf(1, cNoFineTime)) == cNoFineTime && tagOf(1, cNoFineTime) == 1);
}  // namespace storage

#endif
