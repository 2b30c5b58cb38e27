// The part of tPlayer that plays what comes after the opened span.
#include <algorithm>
#include <chrono>
#include <optional>
#include <vector>

#include "KestovaStorage/internal/playback/player.h"

namespace storage
{
namespace
{
using namespace std::chrono_literals;

constexpr auto cLook = 5ms;                    // how often a source is asked for the next segment
constexpr auto cClockIsSet = 1000ms;           // a silence longer than possible by this much is none
constexpr double cBeforeLast = 1.0 - 0x1p-53;  // of the span: which segment is the last is not known
}  // namespace

// Plays what comes after the opened span. Returns false when its source is over or the end is reached.
bool tPlayer::playSource(tCaller& caller)
{
    iReplaySource& source = *m_source;
    caller.rest();
    const std::vector<tReplayedFile> files = m_files.files();
    source.Begin(files.data(), files.size());
    tReplaySourceSegment segment{};
    std::optional<tPlayClock::tTime> exhausted;  // when there was last nothing, before the segment before
    for (;;)
    {
        std::optional<tPlayClock::tTime> nothing;
        if (!source.Next(segment) && !awaitSource(caller, source, segment, nothing))
            return !source.Over();
        meetSource(segment, nothing.has_value(), exhausted);
        exhausted = nothing ? nothing : exhausted;
        if (!playFrom(caller, segment))
            return !m_reachedEnd;
    }
}

// Waits for the next segment; returns false if playing ends before. Sets `nothing` to when there was last none.
bool tPlayer::awaitSource(tCaller& caller, iReplaySource& source, tReplaySourceSegment& segment,
                          std::optional<tPlayClock::tTime>& nothing)
{
    caller.rest();
    do
    {
        nothing = tWorker::tClock::now();
        if (source.Over())
            return false;
        tWorker::tLock held = lock();
        if (!m_thread.running() || mustLeave())
            return false;
        m_thread.waitUntil(held, *nothing + cLook, [this] { return mustLeave(); });
    } while (!source.Next(segment));
    return true;
}

// A segment that had to be waited for and comes later than it is due is due now, and what follows keeps that distance
// from the recorder. A silence longer than the time since a look before it is none, the system clock was set, on or
// back: it is not waited for.
void tPlayer::meetSource(const tReplaySourceSegment& segment, bool waited,
                         const std::optional<tPlayClock::tTime>& exhausted)
{
    const tDue due = tDue::of(segment.timeMs, segment.us);
    const std::chrono::milliseconds silence(segment.timeMs - std::min(segment.timeMs, m_lastTime));
    const tWorker::tLock held = lock();
    const auto now = tWorker::tClock::now();
    const std::chrono::milliseconds back(m_lastTime - std::min(segment.timeMs, m_lastTime));
    const bool isSet = m_lastTime == 0 || back > cClockIsSet || (exhausted && silence > now - *exhausted + cClockIsSet);
    if (m_clock.paused() || (!isSet && (!waited || timeOf(due) >= now)))
        return;
    m_clock.start(due.key, now);
    interrupt();
}

bool tPlayer::playFrom(tCaller& caller, const tReplaySourceSegment& segment)
{
    expect(tDue::of(segment.timeMs, segment.us), segment.timeMs);
    const bool come = isDue(m_current) || waitFor(caller, m_current);
    m_reachedEnd = m_reachedEnd && come;
    if (!come || m_reachedEnd)
        return false;
    caller.through([&](iDataReadReplayObserver& observer) {
        observer.UpdateReplayData(segment.timeMs, cBeforeLast, segment.data, segment.len, segment.fileName);
    });
    return true;
}
}  // namespace storage
