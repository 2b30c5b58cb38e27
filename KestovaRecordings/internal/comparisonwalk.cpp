#include "KestovaRecordings/internal/comparisonwalk.h"

#include <algorithm>
#include <chrono>

namespace recordings
{
namespace
{
constexpr std::chrono::milliseconds cWait{100};
constexpr std::uint64_t cSteps = 4096;  // between two looks at `goOn`
constexpr std::size_t cLead = 32'768;   // messages that one side is ahead
}  // namespace

bool tComparisonWalk::run(const std::function<bool()>& goOn)
{
    for (std::uint64_t steps = 0;; ++steps)
    {
        if (steps % cSteps == 0 && !goOn())
            return false;
        if (!wait(goOn))
            return false;
        if (!step())
            break;
    }
    for (auto& [number, stream] : m_streams)
        stream.finish();
    return true;
}

// Waits until both sides have their next message, or have ended.
bool tComparisonWalk::wait(const std::function<bool()>& goOn)
{
    for (const eSide side : {eSideA, eSideB})
        while (!(m_has[side] = m_feeds[side]->wait(cWait)) && !m_feeds[side]->atEnd())
            if (!goOn())
                return false;
    return true;
}

// Takes one message, or one of each side. Returns false if there is none.
bool tComparisonWalk::step()
{
    if (m_has[eSideA] && m_has[eSideB] && message(eSideA).stream == message(eSideB).stream)
    {
        tStreamComparison& stream = of(message(eSideA).stream);
        if (stream.agrees())
        {
            takeTogether(stream);
            return true;
        }
    }
    if (!m_has[eSideA] && !m_has[eSideB])
        return false;
    take(due());
    return true;
}

void tComparisonWalk::takeTogether(tStreamComparison& stream)
{
    const tMessage &a = message(eSideA), &b = message(eSideB);
    if (!m_content.equal(a.bytes, b.bytes))
    {
        take(eSideA);
        take(eSideB);
        return;
    }
    stream.takeEqual({a.timeUs, b.timeUs}, tMessageContent::looks(a.bytes), [&] { return m_content.hash(a.bytes); });
    m_feeds[eSideA]->advance();
    m_feeds[eSideB]->advance();
}

eSide tComparisonWalk::due()
{
    for (const eSide side : {eSideA, eSideB})
        if (!m_has[otherSide(side)])
            return side;
    for (const eSide side : {eSideB, eSideA})
        if (of(message(side).stream).isAwaited(side))
            return side;
    const eSide early = message(eSideA).timeUs + m_state.offsetUs <= message(eSideB).timeUs ? eSideA : eSideB;
    const eSide late = otherSide(early);
    return m_state.shared[early] > m_state.shared[late] + cLead && hasRoom(late) ? late : early;
}

bool tComparisonWalk::hasRoom(eSide side)
{
    return m_state.waiting[side] < cMostWaiting &&
           of(message(side).stream).waiting(side) + 1 < tStreamComparison::cMostWaiting;
}

void tComparisonWalk::take(eSide side)
{
    const tMessage& taken = message(side);
    tStreamComparison& stream = of(taken.stream);
    const eSide other = otherSide(side);
    if (!m_has[other] && !stream.isAwaiting(other))
        stream.takeAlone(side, taken.timeUs);
    else
        stream.take(side, {m_content.hash(taken.bytes), taken.timeUs});
    m_feeds[side]->advance();
    if (m_state.waiting[side] >= cMostWaiting)
        relieve(side);
}

void tComparisonWalk::relieve(eSide side)
{
    const auto fullest =
        std::ranges::max_element(m_streams, {}, [side](const auto& stream) { return stream.second.waiting(side); });
    fullest->second.shrink();
}
}  // namespace recordings
