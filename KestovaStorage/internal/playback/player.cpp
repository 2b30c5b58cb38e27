#include "KestovaStorage/internal/playback/player.h"

#include <chrono>
#include <cstdio>
#include <new>
#include <sys/prctl.h>
#include <system_error>
#include <utility>

#include "KestovaStorage/internal/playback/playkey.h"

namespace storage
{
namespace
{
using namespace std::chrono_literals;

// A segment handed over so much too late was held up by a stall: playing goes on from there.
constexpr auto cLongStall = 500ms;
constexpr unsigned long cTimerSlack_ns = 1;
}  // namespace

// The right to open, stop, jump or close: one thread at a time.
class tPlayer::tTurn
{
public:
    explicit tTurn(tPlayer& player) : m_player(player)
    {
        tWorker::tLock held = player.m_player.lock();
        ++player.m_turnWaiters;
        player.m_turnFree.wait(held, [&] { return !player.m_controlBusy; });
        --player.m_turnWaiters;
        player.m_controlBusy = true;
    }
    ~tTurn()
    {
        m_player.m_player.wake([this] { m_player.m_controlBusy = false; });
        m_player.m_turnFree.notify_all();
    }
    tTurn(const tTurn&) = delete;
    tTurn& operator=(const tTurn&) = delete;

private:
    tPlayer& m_player;
};

tPlayer::~tPlayer()
{
    close();
    m_player.stop();
}

// ---- control ----

bool tPlayer::open(const std::string& path, tObserver observer)
{
    return carryOut({tCommand::eOpen, path, std::move(observer)});
}

bool tPlayer::stop()
{
    return carryOut({tCommand::eStop});
}

bool tPlayer::jump(double fraction)
{
    return carryOut({tCommand::eJump, {}, {}, fraction});
}

void tPlayer::close()
{
    carryOut({tCommand::eClose});
}

bool tPlayer::pause(bool pause)
{
    {
        const tWorker::tLock held = m_player.lock();
        if (!m_active)
            return false;
        m_clock.setPaused(pause, tWorker::tClock::now());
        ++m_clockChanges;
    }
    m_player.notify();
    tellStatus(pause ? eReplayPaused : eReplayPlaying);
    return true;
}

void tPlayer::setSpeed(double rate)
{
    m_player.wake([&] {
        m_clock.setSpeed(speedFor(rate), tWorker::tClock::now());
        ++m_clockChanges;
    });
}

// At once, or, from inside a callback, as soon as that has returned.
bool tPlayer::carryOut(const tCommand& command)
{
    if (m_observer.inside())
        return putOff(command);
    const tTurn turn(*this);
    return execute(command);
}

// What is not possible now is refused now.
bool tPlayer::putOff(const tCommand& command)
{
    {
        const tWorker::tLock held = m_player.lock();
        if ((command.kind == tCommand::eStop && !m_active) || (command.kind == tCommand::eJump && !m_preReaded))
            return false;
        m_putOff.push_back(command);
    }
    m_player.notify();
    return true;
}

bool tPlayer::execute(const tCommand& command)
{
    switch (command.kind)
    {
    case tCommand::eOpen:
        doOpen(command.path, command.observer);
        return true;
    case tCommand::eStop:
        return doStop();
    case tCommand::eJump:
        return doJump(command.fraction);
    case tCommand::eClose:
        doClose();
        return true;
    }
    return false;
}

void tPlayer::doOpen(const std::string& path, const tObserver& observer)
{
    doClose();
    m_openedFor = observer;
    m_observer.set(observer.get());
    m_player.wake([&] {
        m_path = path;
        m_cancel = false;
        m_opening = true;
        m_job = eJob::eOpen;
    });
    startPlayer();
}

void tPlayer::startPlayer()
try
{
    if (!m_player.running())
        m_player.start([this] { run(); });
}
catch (const std::system_error& error)
{
    std::fprintf(stderr, "%s: no thread to replay on: %s\n", m_path.c_str(), error.what());
    m_player.stop();  // it does not run: the next open tries again
    m_player.wake([this] { m_opening = false; });
}

// Nothing is handed over from the first line on; the player ends between the two statuses.
bool tPlayer::doStop()
{
    {
        const tWorker::tLock held = m_player.lock();
        if (!m_active)
            return false;
        m_hold = true;
        m_clock.setPaused(false, tWorker::tClock::now());
    }
    tellStatus(eReplayPlaying);
    endPlaying();
    {
        const tWorker::tLock held = m_player.lock();
        m_active = m_hold = m_stopFlag = false;
        m_clock.setPaused(false, tWorker::tClock::now());  // a pause that came during the stop ends with it
    }
    tellStatus(eReplayStopped);
    return true;
}

void tPlayer::endPlaying()
{
    tWorker::tLock held = m_player.lock();
    m_stopFlag = true;
    if (!m_player.isSelf())
    {
        m_player.notify();
        m_ended.wait(held, [this] { return !m_playing; });
        return;
    }
    const bool playing = std::exchange(m_playing, false);
    m_job = eJob::eNone;
    held.unlock();
    if (playing)
        tellStatus(eReplayEnded);
}

bool tPlayer::doJump(double fraction)
{
    {
        const tWorker::tLock held = m_player.lock();
        if (!m_preReaded)
            return false;
    }
    doStop();
    {
        const tWorker::tLock held = m_player.lock();
        m_active = m_playing = true;
        m_startKey = startKeyFor(fraction, m_recording.timeline().firstKey(), m_recording.timeline().lastKey());
    }
    tellStatus(eReplayPlaying);
    m_player.wake([this] { m_job = eJob::ePlay; });
    return true;
}

void tPlayer::doClose()
{
    {
        tWorker::tLock held = m_player.lock();
        m_cancel = true;
        m_player.notify();
        m_ended.wait(held, [this] { return !m_opening || m_player.isSelf(); });
    }
    doStop();
    m_observer.set(nullptr);
    m_openedFor.reset();
    std::deque<tCommand> forgotten;  // its observers go when the lock is free again
    const tWorker::tLock held = m_player.lock();
    if (!m_player.isSelf())
        forgotten.swap(m_putOff);  // asked for before this close
    m_recording.clear();
    m_clock = tPlayClock();
    m_preReaded = m_opening = false;
    m_job = eJob::eNone;
}

void tPlayer::tellStatus(std::uint8_t status)
{
    m_observer.through([status](iDataReadReplayObserver& observer) { observer.UpdateReplayStatus(status); });
}

// ---- the player's thread ----

void tPlayer::run()
{
    ::prctl(PR_SET_TIMERSLACK, cTimerSlack_ns);
    for (;;)
    {
        eJob job = eJob::eNone;
        {
            tWorker::tLock held = m_player.lock();
            if (!m_player.wait(held, [this] { return m_job != eJob::eNone || mustRunPutOff(); }))
                return;
            if (!takeTurnForPutOff())
                job = std::exchange(m_job, eJob::eNone);
        }
        if (job == eJob::eOpen)
            openFiles();
        else if (job == eJob::ePlay)
            play();
        else
            runPutOff();
    }
}

// With the lock held. Seeing that there is something to carry out and taking the turn for it are one step.
bool tPlayer::takeTurnForPutOff()
{
    const bool taken = mustRunPutOff();
    m_controlBusy |= taken;
    return taken;
}

// Carries out what was asked for inside callbacks until somebody else wants the turn, the first in any case, and gives
// the turn back.
void tPlayer::runPutOff()
{
    for (bool more = true; more;)
    {
        tCommand command{tCommand::eClose};
        {
            const tWorker::tLock held = m_player.lock();
            command = std::move(m_putOff.front());
            m_putOff.pop_front();
        }
        execute(command);
        const tWorker::tLock held = m_player.lock();
        more = !m_putOff.empty() && m_turnWaiters == 0;
        m_controlBusy = more;
    }
    m_turnFree.notify_all();
}

void tPlayer::openFiles()
{
    for (const auto step : {&tPlayer::tellOpening, &tPlayer::openPath, &tPlayer::tellSpan})
    {
        if (!openingIsOver())
            (this->*step)();
    }
    const bool cancelled = openingIsOver();
    {
        // Opened and started are one step: a jump comes before or after both.
        const tWorker::tLock held = m_player.lock();
        m_opening = false;
        m_preReaded = m_active = m_playing = !cancelled;
        m_startKey = m_recording.timeline().firstKey();
    }
    m_ended.notify_all();
    if (cancelled)
        return;
    tellStatus(eReplayPlaying);
    play();
}

void tPlayer::tellOpening()
{
    tellStatus(eReplayOpening);
}

void tPlayer::tellSpan()
{
    const std::uint64_t first = timeOfKey(m_recording.timeline().firstKey());
    const std::uint64_t last = timeOfKey(m_recording.timeline().lastKey());
    m_observer.through([=](iDataReadReplayObserver& observer) { observer.UpdateDataTimeSpan(first, last); });
}

// Somebody wants it closed, or something else opened.
bool tPlayer::openingIsOver()
{
    const tWorker::tLock held = m_player.lock();
    return m_cancel || !m_putOff.empty() || !m_player.running();
}

void tPlayer::openPath()
try
{
    m_recording.open(m_path, m_specifySuffix, [this] { return openingIsOver(); });
}
catch (const std::bad_alloc&)
{
    std::fprintf(stderr, "%s: not enough memory to open it\n", m_path.c_str());
    m_recording.clear();
}

// Plays from m_startKey to the end, or until it must leave. A start behind the last segment begins with the first one;
// all of them are due then.
void tPlayer::play()
{
    {
        const tWorker::tLock held = m_player.lock();
        m_clock.start(m_startKey, tWorker::tClock::now());
    }
    tTimeline::tCursor cursor(m_recording.timeline(), m_startKey);
    tTimelineSegment segment{};
    bool more = cursor.next(segment);
    if (!more && m_recording.timeline().size() != 0)
    {
        cursor = tTimeline::tCursor(m_recording.timeline(), 0);
        more = cursor.next(segment);
    }
    for (; more && waitFor(segment.key); more = cursor.next(segment))
        deliver(segment);
    bool putOff = false;
    {
        // A stop that has begun tells its first status before the last one of playing.
        tWorker::tLock held = m_player.lock();
        if (!m_player.wait(held, [this] { return !m_hold || mustLeave(); }))
            return;
        putOff = more && !m_stopFlag && takeTurnForPutOff();
    }
    if (putOff)
    {
        runPutOff();
        return;
    }
    tellStatus(eReplayEnded);
    m_player.wake([this] { m_playing = false; });
    m_ended.notify_all();
}

// Waits until the segment is due; false if playing must be left before. All of a millisecond are due with its first:
// the clock would let that one come a tick before the others, and the time between two of them would show it.
bool tPlayer::waitFor(std::uint64_t key)
{
    tWorker::tLock held = m_player.lock();
    while (m_player.running() && !mustLeave())
    {
        if (mustHold())
        {
            m_player.wait(held, [this] { return mustLeave() || !mustHold(); });
            continue;
        }
        const auto due = m_clock.dueTime(key - key % cKeysPerMs);
        const auto now = tWorker::tClock::now();
        if (now >= due)
        {
            if (now - due > cLongStall)
                m_clock.forgetDelay(now, due);
            return true;
        }
        const unsigned int changes = m_clockChanges;
        m_player.waitUntil(held, due, [&] { return mustLeave() || m_hold || m_clockChanges != changes; });
    }
    return false;
}

void tPlayer::deliver(const tTimelineSegment& place)
{
    const auto segment = m_recording.read(place);
    if (!segment)
    {
        ++m_unreadCnt;
        return;
    }
    const tTimeline& timeline = m_recording.timeline();
    const double progress = progressOf(place.key, timeline.firstKey(), timeline.lastKey());
    m_observer.through([&](iDataReadReplayObserver& observer) {
        observer.UpdateReplayData(segment->time, progress, segment->data, segment->len, segment->fileName);
    });
}
}  // namespace storage
