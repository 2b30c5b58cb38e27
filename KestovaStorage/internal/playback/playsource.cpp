// The part of tPlayer that plays what comes after the opened span.
#include <algorithm>
#include <chrono>
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

// Returns how far a replay that has played the segment of this time is behind its recorder on this machine.
std::chrono::milliseconds behindRecorder(std::uint64_t timeMs)
{
    const auto now = std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch());
    return std::max(now - std::chrono::milliseconds(timeMs), 0ms);
}
}  // namespace

// Plays what comes after the opened span. Returns false when its source is over or the end is reached.
bool tPlayer::playSource(tCaller& caller)
{
    iReplaySource& source = *m_source;
    caller.rest();
    const std::vector<tReplayedFile> files = m_files.files();
    source.Begin(files.data(), files.size());
    tReplaySourceSegment segment{};
    for (;;)
    {
        if (!source.Next(segment))
        {
            const std::chrono::nanoseconds behind = behindRecorder(m_lastTime);
            const auto since = tWorker::tClock::now();
            if (!awaitSource(caller, source, segment))
                return !source.Over();
            meetSource(segment, behind + (tWorker::tClock::now() - since));
        }
        if (!playFrom(caller, segment))
            return !m_reachedEnd;
    }
}

// Waits for the next segment; returns false if playing ends before.
bool tPlayer::awaitSource(tCaller& caller, iReplaySource& source, tReplaySourceSegment& segment)
{
    caller.rest();
    while (!source.Next(segment))
    {
        if (source.Over())
            return false;
        tWorker::tLock held = lock();
        if (!m_thread.running() || mustLeave())
            return false;
        m_thread.waitUntil(held, tWorker::tClock::now() + cLook, [this] { return mustLeave(); });
    }
    return true;
}

// A segment that was waited for. What comes later than it is due is due when it is there, and what follows keeps that
// distance from the recorder. A silence longer than what can have passed is none, the system clock was set: it is not
// waited for.
void tPlayer::meetSource(const tReplaySourceSegment& segment, std::chrono::nanoseconds possible)
{
    const tDue due = tDue::of(segment.timeMs, segment.us);
    const std::chrono::milliseconds silence(segment.timeMs - std::min(segment.timeMs, m_lastTime));
    const tWorker::tLock held = lock();
    const auto now = tWorker::tClock::now();
    if (m_clock.paused() || (timeOf(due) >= now && m_lastTime != 0 && silence <= possible + cClockIsSet))
        return;
    m_clock.start(due.key, now);
    interrupt();
}

bool tPlayer::playFrom(tCaller& caller, const tReplaySourceSegment& segment)
{
    expect(tDue::of(segment.timeMs, segment.us), segment.timeMs);
    if ((!isDue(m_current) && !waitFor(caller, m_current)) || m_reachedEnd)
        return false;
    caller.through([&](iDataReadReplayObserver& observer) {
        observer.UpdateReplayData(segment.timeMs, cBeforeLast, segment.data, segment.len, segment.fileName);
    });
    return true;
}
}  // namespace storage
