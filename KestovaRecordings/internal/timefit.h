// fitTimes: which of several identical messages is the one that the other side lacks.
//
// Among identical messages any may be paired with any, as far as the contents go: how many differ is the same. Their
// times tell which is missing.
#ifndef KESTOVA_RECORDINGS_INTERNAL_TIMEFIT_H
#define KESTOVA_RECORDINGS_INTERNAL_TIMEFIT_H

#include <cstdint>
#include <span>

#include "KestovaRecordings/internal/messagequeue.h"
#include "KestovaRecordings/internal/sequencealigner.h"

namespace recordings
{
// Pairs each run of identical messages, of which one side has more than the other, anew: so that the times of its pairs
// are as close to `offsetUs` apart (B's less A's) as they can be in this order. Which messages have a partner changes,
// how many does not. Of runs for which that would take too long the missing messages are taken to be one block.
void fitTimes(tAlignedPairs& pairs, std::span<const tWaitingMessage> a, std::span<const tWaitingMessage> b,
              std::int64_t offsetUs);
}  // namespace recordings

#endif
