// tStreamComparison: one stream of two recordings, aligned by content while both are read.
//
// Shapes   Messages come from either side in their order. While the two agree, the comparison keeps nothing but the
//          last run of identical messages; from a difference on it keeps a hash and a time of each message, until 64
//          in a row agree again (first looked for after 1,024 messages a side) or both sides end. What is kept then is
//          aligned by a longest common subsequence, so that one lost message is one difference.
// Bounds   cMostWaiting messages a side, 16 bytes each. If more wait and nothing agrees, the older side's oldest half
//          has no counterpart.
// Threads  none; one at a time.
#ifndef KESTOVA_RECORDINGS_INTERNAL_STREAMCOMPARISON_H
#define KESTOVA_RECORDINGS_INTERNAL_STREAMCOMPARISON_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "KestovaRecordings/internal/messagequeue.h"
#include "KestovaRecordings/internal/offsethistogram.h"
#include "KestovaRecordings/internal/sequencealigner.h"

namespace recordings
{
enum eSide : std::uint8_t
{
    eSideA,
    eSideB
};

inline eSide otherSide(eSide side)
{
    return side == eSideA ? eSideB : eSideA;
}

// What the comparisons of all streams share.
class tComparisonState
{
public:
    bool withLate = false;      // offsets are kept for each stream
    std::int64_t offsetUs = 0;  // B's time less A's, of late
    tOffsetHistogram offsets{65'536};
    tSequenceAligner aligner{};
    std::array<std::size_t, 2> waiting{};  // messages of all streams, a side
    std::array<std::size_t, 2> shared{};   // of these, those of streams that both sides have

    // Follows the times of pairs. Another offset, by a second or more, must come many times in a row: messages that
    // repeat can pair anywhere.
    void followOffset(const tTimePair& times)
    {
        constexpr std::int64_t cNear_us = 1'000'000;
        constexpr int cEnough = 64;
        const std::int64_t us = times.bUs - times.aUs;
        const auto isNear = [us](std::int64_t other) { return us < other + cNear_us && us > other - cNear_us; };
        const int before = isNear(m_other) ? m_others : 0;
        m_others = isNear(offsetUs) ? 0 : before + 1;
        m_other = us;
        if (m_others == 0 || m_others == cEnough)
            offsetUs = us;
    }

private:
    std::int64_t m_other = 0;  // the last one
    int m_others = 0;          // in a row that are far from offsetUs and near each other
};

class tStreamComparison
{
public:
    static constexpr std::size_t cMostWaiting = 131'072;

    // A message without its counterpart; the times of both where both have one.
    struct tFirst
    {
        std::optional<std::int64_t> aUs, bUs;
    };
    struct tCounts
    {
        std::uint64_t same = 0, onlyA = 0, onlyB = 0, changed = 0, moved = 0;
        std::optional<tFirst> first;
    };

    explicit tStreamComparison(tComparisonState& state) : m_state(state) {}

    // Whether both sides have agreed so far: the next messages of both may be compared with each other.
    bool agrees() const
    {
        return !m_parted && m_waiting[eSideA].size() == m_paired && m_waiting[eSideB].size() == m_paired;
    }
    // Whether the next message of this side is the counterpart of one that waits.
    bool isAwaited(eSide side) const { return !m_parted && m_waiting[side].size() < m_waiting[otherSide(side)].size(); }
    bool isAwaiting(eSide side) const { return !m_waiting[side].empty(); }
    std::size_t waiting(eSide side) const { return m_waiting[side].size(); }
    std::int64_t oldest(eSide side) const { return m_waiting[side][0].timeUs; }

    // Takes the next messages of both sides, which are equal. While agrees(). `looks` is equal for equal messages,
    // rarely for others, and never 0; `hash` returns the message's hash.
    template <typename tHash>
    void takeEqual(const tTimePair& times, std::uint64_t looks, tHash hash)
    {
        noteSide(eSideA);
        noteSide(eSideB);
        if (looks != m_lastLooks && (m_lastLooks != 0 || m_paired == 0))
        {
            releasePairs(m_paired);
            match(times);
            m_state.followOffset(times);
            m_lastLooks = looks;
            return;
        }
        m_lastLooks = looks;
        const std::uint64_t hashed = hash();
        push(eSideA, {hashed, times.aUs});
        push(eSideB, {hashed, times.bUs});
        pairUp();
    }
    // Takes the next message of a side.
    void take(eSide side, const tWaitingMessage& message);
    // Takes the next message of a side if nothing of the other side can be its counterpart any more.
    void takeAlone(eSide side, std::int64_t timeUs);
    // Decides about half of what waits, or more.
    void shrink();
    // Decides about everything: both sides have ended.
    void finish();

    const tCounts& counts() const { return m_counts; }
    const tOffsetHistogram& offsets() const { return m_offsets; }  // with state.withLate

private:
    // How many messages of either side, and how many of their pairs, are decided.
    struct tExtent
    {
        std::size_t pairs = 0, a = 0, b = 0;
    };

    void noteSide(eSide side);
    void push(eSide side, const tWaitingMessage& message);
    void pop(eSide side, std::size_t count);
    void pairUp();
    void releasePairs(std::size_t count);
    void part();
    void settle(bool atEnd);
    void settlePart(const tAlignedPairs& pairs);
    tExtent sureExtent(const tAlignedPairs& pairs) const;
    tExtent likelyExtent(const tAlignedPairs& pairs) const;
    void commit(const tAlignedPairs& pairs, const tExtent& extent);
    void takeMoved(std::vector<std::size_t>& ofA, std::vector<std::size_t>& ofB);
    void dropOldest();
    void drop(eSide side, std::size_t count);
    void match(const tTimePair& times);
    void miss(eSide side, std::int64_t timeUs);
    void closeGap();
    void noteFirst(const tFirst& candidate);

    tComparisonState& m_state;
    std::array<tMessageQueue, 2> m_waiting;
    std::size_t m_paired = 0;  // of those that wait: the first ones of both sides, identical ones, are pairs
    bool m_parted = false;     // behind the pairs both sides have messages that differ
    std::size_t m_settleAt = 0;
    std::uint64_t m_lastLooks = 0;
    std::array<bool, 2> m_seen{};

    // Since the last pair.
    std::array<std::uint64_t, 2> m_gap{};
    tFirst m_gapFirst;

    tCounts m_counts;
    std::int64_t m_firstUs = INT64_MAX;  // of m_counts.first, on A's clock
    tOffsetHistogram m_offsets{1024};
};
}  // namespace recordings

#endif
