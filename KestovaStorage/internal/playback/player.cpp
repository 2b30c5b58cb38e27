#include "KestovaStorage/internal/playback/player.h"

#include <chrono>
#include <new>
#include <sys/prctl.h>
#include <system_error>
#include <utility>

#include "KestovaStorage/internal/playback/playkey.h"
#include "UdpSocket/consoleprint.h"

namespace storage
{
namespace
{
using namespace std::chrono_literals;

// A delivery this late means a stall: playing continues from there without catching up.
constexpr auto cLongStall = 500ms;
constexpr unsigned long cTimerSlack_ns = 1;
}  // namespace

bool tPlayer::pause(bool pause)
{
    {
        const tWorker::tLock held = lock();
        if (!m_active)
            return false;
        m_clock.setPaused(pause, tWorker::tClock::now());
        ++m_clockChanges;
        interrupt();
    }
    notify();
    report(pause ? eReplayPaused : eReplayPlaying);
    return true;
}

void tPlayer::setSpeed(tReplaySpeed speed)
{
    m_thread.wake([&] {
        m_clock.setSpeed(speed, tWorker::tClock::now());
        ++m_clockChanges;
    });
}

void tPlayer::report(eReplayStatus status)
{
    m_observer.through([status](iDataReadReplayObserver& observer) { observer.UpdateReplayStatus(status); });
}

// ---- steps of control ----

void tPlayer::startOpening(const tPaths& paths, const tObserver& observer)
{
    m_openedFor = observer;
    m_observer.set(observer.get());
    m_thread.wake([&] {
        m_paths = paths;
        m_cancel = false;
        m_opening = true;
        m_job = eJob::eOpen;
    });
    startThread();
}

void tPlayer::startThread()
try
{
    if (!m_thread.running())
        m_thread.start([this] { run(); });
}
catch (const std::system_error& error)
{
    Kestova::console::printError("%s: no thread to replay on: %s\n", m_paths.front().c_str(), error.what());
    m_thread.stop();  // it does not run: the next open tries again
    m_thread.wake([this] { m_opening = false; });
}

void tPlayer::cancelOpening()
{
    tWorker::tLock held = lock();
    m_cancel = true;
    notify();
    m_ended.wait(held, [this] { return !m_opening || isSelf(); });
}

bool tPlayer::hold()
{
    const tWorker::tLock held = lock();
    if (!m_active)
        return false;
    m_hold = true;
    interrupt();
    m_clock.setPaused(false, tWorker::tClock::now());
    return true;
}

void tPlayer::endPlaying()
{
    tWorker::tLock held = lock();
    m_stopFlag = true;
    interrupt();
    if (!isSelf())
    {
        notify();
        m_ended.wait(held, [this] { return !m_playing; });
        return;
    }
    const bool playing = std::exchange(m_playing, false);
    m_job = eJob::eNone;
    held.unlock();
    if (playing)
        report(eReplayEnded);
}

void tPlayer::leaveStopped()
{
    const tWorker::tLock held = lock();
    m_active = m_hold = m_stopFlag = false;
    m_clock.setPaused(false, tWorker::tClock::now());  // a pause set during the stop ends with it
}

void tPlayer::setStart(double fraction)
{
    const tWorker::tLock held = lock();
    m_active = m_playing = true;
    m_startKey = startKeyFor(fraction, m_files.timeline().firstKey(), m_files.timeline().lastKey());
}

void tPlayer::startPlaying()
{
    m_thread.wake([this] { m_job = eJob::ePlay; });
}

void tPlayer::close()
{
    m_observer.set(nullptr);
    m_openedFor.reset();
    const tWorker::tLock held = lock();
    m_files.clear();
    m_clock = tPlayClock();
    m_opened = m_opening = false;
    m_job = eJob::eNone;
}

// ---- the player's thread ----

void tPlayer::run()
{
    ::prctl(PR_SET_TIMERSLACK, cTimerSlack_ns);
    for (;;)
    {
        eJob job = eJob::eNone;
        {
            tWorker::tLock held = lock();
            if (!m_thread.wait(held, [this] { return m_job != eJob::eNone || m_deferred.ready(); }))
                return;
            if (!m_deferred.takeTurn())
                job = std::exchange(m_job, eJob::eNone);
        }
        if (job == eJob::eOpen)
            openFiles();
        else if (job == eJob::ePlay)
            play();
        else
            m_deferred.run();
    }
}

void tPlayer::openFiles()
{
    for (const auto step : {&tPlayer::reportOpening, &tPlayer::openPath, &tPlayer::reportSpan})
    {
        if (!openingIsOver())
            (this->*step)();
    }
    const bool cancelled = openingIsOver();
    {
        // Opened and started are one step: a jump comes before or after both.
        const tWorker::tLock held = lock();
        m_opening = false;
        m_opened = m_active = m_playing = !cancelled;
        m_startKey = m_files.timeline().firstKey();
    }
    m_ended.notify_all();
    if (cancelled)
        return;
    report(eReplayPlaying);
    play();
}

// Returns whether opening was cancelled: everything is being closed, or another path opened.
bool tPlayer::openingIsOver() const
{
    const tWorker::tLock held = lock();
    return m_cancel || m_deferred.waiting() || !m_thread.running();
}

void tPlayer::openPath()
try
{
    m_files.open(m_paths, m_specifySuffix, [this] { return openingIsOver(); });
}
catch (const std::bad_alloc&)
{
    Kestova::console::printError("%s: not enough memory to open it\n", m_paths.front().c_str());
    m_files.clear();
}

void tPlayer::reportSpan()
{
    const std::uint64_t first = timeOfKey(m_files.timeline().firstKey());
    const std::uint64_t last = timeOfKey(m_files.timeline().lastKey());
    m_observer.through([=](iDataReadReplayObserver& observer) { observer.UpdateDataTimeSpan(first, last); });
}

// Plays from m_startKey to the end, or until it must leave. A start behind the last segment plays all of them without
// waiting.
void tPlayer::play()
{
    {
        const tWorker::tLock held = lock();
        m_clock.start(m_startKey, tWorker::tClock::now());
        interrupt();
    }
    tCaller caller(m_observer);
    m_lastTime = 0;
    m_reachedEnd = false;
    bool more = playOpened(caller);
    if (!more && !m_reachedEnd && m_source != nullptr)
        more = playSource(caller);
    caller.rest();
    leave(more);
}

// Returns whether something is left.
bool tPlayer::playOpened(tCaller& caller)
{
    tTimeline::tCursor cursor(m_files.timeline(), m_startKey);
    tTimelineSegment segment{};
    bool more = cursor.next(segment);
    if (!more && m_files.timeline().size() != 0)
    {
        cursor = tTimeline::tCursor(m_files.timeline(), 0);
        more = cursor.next(segment);
    }
    for (; more; more = cursor.next(segment))
    {
        expect(dueOf(segment, cursor.record()), storage::timeOf(cursor.record()));
        if (!isDue(m_current) && !waitFor(caller, m_current))
            break;
        if (m_reachedEnd)
            return false;
        deliver(caller, segment, cursor.record());
    }
    return more;
}

// Reports the end, unless deferred commands interrupt playing: they report it themselves.
void tPlayer::leave(bool more)
{
    bool interrupted = false;
    {
        // A stop that has begun reports its first status before the last one of playing.
        tWorker::tLock held = lock();
        if (!m_thread.wait(held, [this] { return !m_hold || mustLeave(); }))
            return;
        interrupted = more && !m_stopFlag && m_deferred.takeTurn();
    }
    if (interrupted)
    {
        m_deferred.run();
        return;
    }
    report(eReplayEnded);
    m_thread.wake([this] { m_playing = false; });
    m_ended.notify_all();
}

tPlayer::tDue tPlayer::tDue::of(std::uint64_t timeMs, int us)
{
    return {us < 0 ? keyOfTime(timeMs) : exactKey(timeMs, static_cast<std::uint32_t>(us)), us};
}

// Segments of one millisecond are due together: by their keys the first would come a tick before the others.
tPlayer::tDue tPlayer::dueOf(const tTimelineSegment& segment, const tIndexSlot& record)
{
    const int us = m_files.fineTime(segment, record);
    return us < 0 ? tDue{segment.key - segment.key % cKeysPerMs, us} : tDue::of(storage::timeOf(record), us);
}

// Makes a segment the present one; or, in place of one behind it, the end.
void tPlayer::expect(const tDue& due, std::uint64_t timeMs)
{
    const std::uint64_t end = m_endMs;
    m_reachedEnd = timeMs >= end;
    m_current = m_reachedEnd ? tDue::of(end, due.exact() ? 0 : -1) : due;
    if (m_topSpeed)
        m_current.key = 0;
    m_lastTime = timeMs;
    m_forgiven = {};
}

std::int64_t tPlayer::dueTime_ns() const
{
    const tWorker::tLock held = lock();
    if (m_clock.paused() || m_topSpeed)
        return 0;
    return std::chrono::nanoseconds(timeOf(m_current).time_since_epoch() - m_forgiven).count();
}

// Waits until the segment is due; returns false if playing ends before. What is due by then needs neither the lock nor
// the time, until somebody interrupts.
bool tPlayer::waitFor(tCaller& caller, const tDue& segment)
{
    caller.rest();
    tWorker::tLock held = lock();
    m_interrupted = false;
    while (m_thread.running() && !mustLeave())
    {
        if (mustHold())
        {
            m_thread.wait(held, [this] { return mustLeave() || !mustHold(); });
            continue;
        }
        const auto due = timeOf(segment);
        const auto now = tWorker::tClock::now();
        if (now >= due)
        {
            if (now - due > cLongStall)
            {
                m_forgiven = now - due;
                m_clock.forgetDelay(now, due);
            }
            m_dueUntil = m_clock.position(now) | (cKeysPerMs - 1);
            m_exactUntil = m_clock.exactPosition(now);
            return true;
        }
        const unsigned int changes = m_clockChanges;
        m_thread.waitUntil(held, due, [&] { return mustLeave() || m_hold || m_clockChanges != changes; });
    }
    return false;
}

void tPlayer::deliver(tCaller& caller, const tTimelineSegment& place, const tIndexSlot& record)
{
    const auto segment = m_files.read(place.file, record);
    if (!segment)
    {
        ++m_unreadCnt;
        return;
    }
    const tTimeline& timeline = m_files.timeline();
    const double progress = progressOf(place.key, timeline.firstKey(), timeline.lastKey());
    caller.through([&](iDataReadReplayObserver& observer) {
        observer.UpdateReplayData(segment->time, progress, segment->data, segment->len, segment->fileName);
    });
}
}  // namespace storage
