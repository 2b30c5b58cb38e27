#include "KestovaRecordings/internal/streamcomparison.h"

#include <algorithm>
#include <unordered_map>
#include <vector>

#include "KestovaRecordings/internal/timefit.h"

namespace recordings
{
namespace
{
constexpr std::size_t cLookAhead = 2048;  // messages of both sides behind a difference, before it is looked at
constexpr std::size_t cSureRun = 64;      // pairs in a row that show that both sides agree again
constexpr std::size_t cMostPaired = 65'536;

// Returns the places below `end` that are in none of the first `count` pairs.
std::vector<std::size_t> unpaired(const tAlignedPairs& pairs, std::size_t count, std::size_t tAlignedPair::*side,
                                  std::size_t end)
{
    std::vector<std::size_t> places;
    std::size_t next = 0;
    for (std::size_t i = 0; i < count; next = pairs[i++].*side + 1)
        for (; next < pairs[i].*side; ++next)
            places.push_back(next);
    for (; next < end; ++next)
        places.push_back(next);
    return places;
}
}  // namespace

void tStreamComparison::noteSide(eSide side)
{
    if (m_seen[side])
        return;
    m_seen[side] = true;
    if (m_seen[otherSide(side)])
        for (const eSide each : {eSideA, eSideB})
            m_state.shared[each] += m_waiting[each].size();
}

void tStreamComparison::push(eSide side, const tWaitingMessage& message)
{
    m_waiting[side].push(message);
    ++m_state.waiting[side];
    m_state.shared[side] += m_seen[eSideA] && m_seen[eSideB] ? 1 : 0;
}

void tStreamComparison::pop(eSide side, std::size_t count)
{
    m_waiting[side].pop(count);
    m_state.waiting[side] -= count;
    m_state.shared[side] -= m_seen[eSideA] && m_seen[eSideB] ? count : 0;
}

void tStreamComparison::take(eSide side, const tWaitingMessage& message)
{
    noteSide(side);
    m_lastLooks = 0;
    push(side, message);
    if (!m_parted)
        pairUp();
    else if (m_waiting[eSideA].size() + m_waiting[eSideB].size() >= m_settleAt)
        settle(false);
    if (m_waiting[side].size() >= cMostWaiting)
        shrink();
}

void tStreamComparison::takeAlone(eSide side, std::int64_t timeUs)
{
    noteSide(side);
    drop(side, m_waiting[side].size());
    miss(side, timeUs);
}

// Pairs of different messages are decided at once; identical ones are kept, since one that is missing among them shows
// at the end of their run alone.
void tStreamComparison::pairUp()
{
    const tMessageQueue &a = m_waiting[eSideA], &b = m_waiting[eSideB];
    while (m_paired < std::min(a.size(), b.size()))
    {
        if (a[m_paired].hash != b[m_paired].hash)
            return part();
        if (m_paired > 0 && a[m_paired].hash != a[m_paired - 1].hash)
            releasePairs(m_paired);
        ++m_paired;
    }
    if (m_paired >= cMostPaired)
        releasePairs(m_paired / 2);
}

void tStreamComparison::releasePairs(std::size_t count)
{
    if (count == 0)
        return;
    if (count == 1)
        m_state.followOffset({oldest(eSideA), oldest(eSideB)});
    for (std::size_t i = 0; i < count; ++i)
        match({m_waiting[eSideA][i].timeUs, m_waiting[eSideB][i].timeUs});
    pop(eSideA, count);
    pop(eSideB, count);
    m_paired -= count;
}

void tStreamComparison::part()
{
    m_parted = true;
    m_paired = 0;
    m_settleAt = std::max(cLookAhead, 2 * (m_waiting[eSideA].size() + m_waiting[eSideB].size()));
}

void tStreamComparison::settle(bool atEnd)
{
    const auto a = m_waiting[eSideA].all(), b = m_waiting[eSideB].all();
    tAlignedPairs pairs = m_state.aligner.align(a, b);
    fitTimes(pairs, a, b, m_state.offsetUs);
    if (atEnd)
        return commit(pairs, {pairs.size(), a.size(), b.size()});
    settlePart(pairs);
}

void tStreamComparison::settlePart(const tAlignedPairs& pairs)
{
    tExtent extent = sureExtent(pairs);
    if (extent.pairs == 0 && std::max(m_waiting[eSideA].size(), m_waiting[eSideB].size()) >= cMostWaiting)
        extent = likelyExtent(pairs);
    if (extent.pairs == 0)
    {
        m_settleAt = 2 * (m_waiting[eSideA].size() + m_waiting[eSideB].size());
        return;
    }
    commit(pairs, extent);
    m_parted = false;
    pairUp();
}

// Returns how far the last long run of pairs reaches: whatever follows, what lies before it is aligned for good.
tStreamComparison::tExtent tStreamComparison::sureExtent(const tAlignedPairs& pairs) const
{
    std::size_t length = 0;
    for (std::size_t end = pairs.size(); end > 0; --end)
    {
        const bool goesOn = length > 0 && pairs[end].follows(pairs[end - 1]);
        length = goesOn ? length + 1 : 1;
        if (length >= cSureRun)
        {
            const tAlignedPair& last = pairs[end + length - 2];
            return {end + length - 1, last.a + 1, last.b + 1};
        }
    }
    return {};
}

// Returns an extent for a full memory without any long run. A few pairs among many messages say nothing: both sides
// repeat some messages anywhere.
tStreamComparison::tExtent tStreamComparison::likelyExtent(const tAlignedPairs& pairs) const
{
    constexpr std::size_t cFew = 8;
    const std::size_t a = m_waiting[eSideA].size(), b = m_waiting[eSideB].size();
    if (pairs.size() * cFew < std::min(a, b))
        return {};
    std::size_t count = pairs.size();
    while (count > 0 && (pairs[count - 1].a * 4 > a * 3 || pairs[count - 1].b * 4 > b * 3))
        --count;
    return count == 0 ? tExtent{} : tExtent{count, pairs[count - 1].a + 1, pairs[count - 1].b + 1};
}

void tStreamComparison::commit(const tAlignedPairs& pairs, const tExtent& extent)
{
    const tMessageQueue &a = m_waiting[eSideA], &b = m_waiting[eSideB];
    std::vector<std::size_t> ofA = unpaired(pairs, extent.pairs, &tAlignedPair::a, extent.a);
    std::vector<std::size_t> ofB = unpaired(pairs, extent.pairs, &tAlignedPair::b, extent.b);
    takeMoved(ofA, ofB);
    auto nextA = ofA.begin(), nextB = ofB.begin();
    for (std::size_t i = 0; i <= extent.pairs; ++i)
    {
        const bool isPair = i < extent.pairs;
        for (const std::size_t end = isPair ? pairs[i].a : extent.a; nextA != ofA.end() && *nextA < end; ++nextA)
            miss(eSideA, a[*nextA].timeUs);
        for (const std::size_t end = isPair ? pairs[i].b : extent.b; nextB != ofB.end() && *nextB < end; ++nextB)
            miss(eSideB, b[*nextB].timeUs);
        if (isPair)
            match({a[pairs[i].a].timeUs, b[pairs[i].b].timeUs});
    }
    pop(eSideA, extent.a);
    pop(eSideB, extent.b);
}

// Messages without a partner that both sides have, each at its own place, have moved.
void tStreamComparison::takeMoved(std::vector<std::size_t>& ofA, std::vector<std::size_t>& ofB)
{
    const tMessageQueue &a = m_waiting[eSideA], &b = m_waiting[eSideB];
    std::unordered_map<std::uint64_t, std::vector<std::size_t>> places;  // in B, the last one first
    for (auto place = ofB.rbegin(); place != ofB.rend() && !ofA.empty(); ++place)
        places[b[*place].hash].push_back(*place);
    std::vector<std::size_t> movedB;
    std::erase_if(ofA, [&](std::size_t place) {
        const auto found = places.find(a[place].hash);
        if (found == places.end() || found->second.empty())
            return false;
        const std::size_t to = found->second.back();
        found->second.pop_back();
        movedB.push_back(to);
        ++m_counts.moved;
        noteFirst({a[place].timeUs, b[to].timeUs});
        return true;
    });
    std::sort(movedB.begin(), movedB.end());
    std::erase_if(ofB, [&](std::size_t place) { return std::binary_search(movedB.begin(), movedB.end(), place); });
}

void tStreamComparison::shrink()
{
    const std::size_t before = m_waiting[eSideA].size() + m_waiting[eSideB].size();
    if (m_paired > 0)
        releasePairs(m_paired);
    else if (m_parted)
        settle(false);
    if (m_waiting[eSideA].size() + m_waiting[eSideB].size() > before / 2)
        dropOldest();
}

void tStreamComparison::dropOldest()
{
    const tMessageQueue &a = m_waiting[eSideA], &b = m_waiting[eSideB];
    const bool olderA = b.empty() || (!a.empty() && oldest(eSideA) + m_state.offsetUs <= oldest(eSideB));
    const eSide side = olderA ? eSideA : eSideB;
    const eSide larger = a.size() >= b.size() ? eSideA : eSideB;
    // The older side is dropped as long as it is the one that fills the memory.
    drop(m_waiting[side].size() * 4 >= m_waiting[larger].size() ? side : larger, cMostWaiting / 2);
    m_parted = false;
    pairUp();
}

void tStreamComparison::drop(eSide side, std::size_t count)
{
    count = std::min(count, m_waiting[side].size());
    for (std::size_t i = 0; i < count; ++i)
        miss(side, m_waiting[side][i].timeUs);
    pop(side, count);
}

void tStreamComparison::finish()
{
    if (agrees())
        releasePairs(m_paired);
    else
        settle(true);
    closeGap();
}

void tStreamComparison::match(const tTimePair& times)
{
    if (m_gap[eSideA] + m_gap[eSideB] > 0)
        closeGap();
    ++m_counts.same;
    m_state.offsets.add(times);
    if (m_state.withLate)
        m_offsets.add(times);
}

void tStreamComparison::miss(eSide side, std::int64_t timeUs)
{
    if (++m_gap[side] == 1)
        (side == eSideA ? m_gapFirst.aUs : m_gapFirst.bUs) = timeUs;
}

// What lies between the same two pairs is at the same place.
void tStreamComparison::closeGap()
{
    const std::uint64_t changed = std::min(m_gap[eSideA], m_gap[eSideB]);
    m_counts.changed += changed;
    m_counts.onlyA += m_gap[eSideA] - changed;
    m_counts.onlyB += m_gap[eSideB] - changed;
    if (m_gapFirst.aUs || m_gapFirst.bUs)
        noteFirst(m_gapFirst);
    m_gap = {};
    m_gapFirst = {};
}

void tStreamComparison::noteFirst(const tFirst& candidate)
{
    const std::int64_t timeUs = candidate.aUs ? *candidate.aUs : *candidate.bUs - m_state.offsetUs;
    if (m_counts.first && timeUs >= m_firstUs)
        return;
    m_counts.first = candidate;
    m_firstUs = timeUs;
}
}  // namespace recordings
