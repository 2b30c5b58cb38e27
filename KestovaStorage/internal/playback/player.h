// tPlayer: opens files, waits for the clock and delivers segments to the observer, on a thread of its own.
//
// Threads  one; it starts with the first startOpening() and lives as long as the object. Statuses are reported on the
//          thread that calls report(), the span and segments on the player's. pause(), setSpeed() and inside() may be
//          called from any thread; the steps of control only by the thread that has the turn (see tPlayControl).
// Locks    lock() guards all state. The files belong to the player's thread while it opens or plays, and otherwise to
//          the thread that has the turn. No lock is held during a callback.
#ifndef KESTOVA_STORAGE_PLAYBACK_PLAYER_H
#define KESTOVA_STORAGE_PLAYBACK_PLAYER_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KestovaStorage/internal/playback/openedfiles.h"
#include "KestovaStorage/internal/playback/playclock.h"
#include "KestovaStorage/replayobserver.h"
#include "KestovaStorage/replaysource.h"
#include "common/observers.h"
#include "common/worker.h"

namespace storage
{
// Commands from inside callbacks, which the player's thread carries out between two segments. All but run() are called
// with the player's lock held.
class iDeferredCommands
{
public:
    virtual bool waiting() const = 0;  // some are queued: no segment is delivered meanwhile
    virtual bool ready() const = 0;    // they can be carried out now
    virtual bool takeTurn() = 0;       // takes the turn for them, if ready()
    virtual void run() = 0;            // carries them out and releases the turn

protected:
    ~iDeferredCommands() = default;
};

class tPlayer
{
public:
    using tObserver = std::shared_ptr<iDataReadReplayObserver>;
    using tPaths = std::vector<std::string>;  // one at least

    tPlayer(const std::string& specifySuffix, iDeferredCommands& deferred)
        : m_specifySuffix(specifySuffix), m_deferred(deferred)
    {}

    bool pause(bool pause);  // returns false unless active
    void setSpeed(tReplaySpeed speed);
    // From the next start of playing on; see tDataStorageIO.
    void setEnd(std::uint64_t timeMs) { m_endMs = timeMs == 0 ? UINT64_MAX : timeMs; }
    void setTopSpeed(bool on) { m_topSpeed = on; }
    void setSource(iReplaySource* source) { m_source = source; }
    std::uint64_t unreadCnt() const { return m_unreadCnt; }  // segments that were due and could not be read
    // Of the segment being delivered, inside that call; see tDataStorageIO.
    int fineTime() const { return m_current.us; }
    std::int64_t dueTime_ns() const;
    bool inside() const { return m_observer.inside(); }  // returns whether the calling thread is inside a callback
    void report(eReplayStatus status);

    tWorker::tLock lock() const { return m_thread.lock(); }
    void notify() { m_thread.notify(); }
    bool isSelf() const { return m_thread.isSelf(); }
    // With the lock held.
    void interrupt() { m_interrupted = true; }  // the next segment waits until everything has been looked at
    bool opened() const { return m_opened; }
    bool active() const { return m_active; }

    // ---- steps of control, in the order of their use; the caller has the turn ----

    // Opens everything at `paths` and plays it from the start. Keeps the observer until close().
    void startOpening(const tPaths& paths, const tObserver& observer);
    void cancelOpening();            // returns when opening has ended
    bool hold();                     // stops delivery; returns false unless active
    void endPlaying();               // reports the end of playing, unless it has ended already
    void leaveStopped();             // after endPlaying(): not active any more
    void setStart(double fraction);  // active again; playing will start there
    void startPlaying();
    void close();                    // releases observer and files
    void end() { m_thread.stop(); }  // joins the thread

private:
    using tCaller = tObserverGate<iDataReadReplayObserver>::tCaller;
    enum class eJob
    {
        eNone,
        eOpen,
        ePlay
    };

    void startThread();
    void run();
    void openFiles();
    void reportOpening() { report(eReplayOpening); }
    void openPath();
    void reportSpan();
    bool openingIsOver() const;
    void play();
    void leave(bool more);
    // When a segment is due: with its millisecond, or, if its microseconds are known, to the microsecond.
    struct tDue
    {
        std::uint64_t key = 0;  // of the clock's position, or of its exact one
        int us = -1;

        bool exact() const { return us >= 0; }
        static tDue of(std::uint64_t timeMs, int us);
    };
    tDue dueOf(const tTimelineSegment& segment, const tIndexSlot& record);
    void expect(const tDue& due, std::uint64_t timeMs);
    bool playOpened(tCaller& caller);
    bool playSource(tCaller& caller);
    bool awaitSource(tCaller& caller, iReplaySource& source, tReplaySourceSegment& segment,
                     std::optional<tPlayClock::tTime>& nothing);
    void meetSource(const tReplaySourceSegment& segment, bool waited,
                    const std::optional<tPlayClock::tTime>& exhausted);
    bool playFrom(tCaller& caller, const tReplaySourceSegment& segment);
    tPlayClock::tTime timeOf(const tDue& due) const
    {
        return due.exact() ? m_clock.exactDueTime(due.key) : m_clock.dueTime(due.key);
    }
    bool isDue(const tDue& due) const
    {
        return due.key <= (due.exact() ? m_exactUntil : m_dueUntil) && !m_interrupted.load(std::memory_order_acquire);
    }
    bool waitFor(tCaller& caller, const tDue& due);
    void deliver(tCaller& caller, const tTimelineSegment& place, const tIndexSlot& record);
    bool mustLeave() const { return m_stopFlag || m_deferred.ready(); }
    bool mustHold() const { return m_hold || m_deferred.waiting() || m_clock.paused(); }

    const std::string m_specifySuffix;
    iDeferredCommands& m_deferred;
    tObserverGate<iDataReadReplayObserver> m_observer;
    tObserver m_openedFor;            // the one that m_observer calls; changed with the turn
    std::condition_variable m_ended;  // with the lock: opening or playing has ended

    // guarded by the lock
    eJob m_job = eJob::eNone;      // what the thread is to do next
    tPaths m_paths;                // what to open
    bool m_cancel = false;         // opening is to end early
    bool m_opening = false;        // the thread opens, or is about to
    bool m_opened = false;         // opening has finished
    bool m_active = false;         // playing was started and not stopped since; it may have ended
    bool m_playing = false;        // the thread plays, or is about to
    bool m_hold = false;           // a stop has begun: nothing is delivered
    bool m_stopFlag = false;       // playing is to end
    std::uint64_t m_startKey = 0;  // start of playing
    tPlayClock m_clock;
    unsigned int m_clockChanges = 0;  // how often speed or pause were set

    std::atomic<bool> m_interrupted{false};  // changed under the lock: segments that are due have to wait for it, too
    // The thread's own:
    std::uint64_t m_dueUntil = 0, m_exactUntil = 0;  // keys known to be due
    tDue m_current;                                  // the segment being delivered, or waited for
    std::chrono::nanoseconds m_forgiven{0};          // how late it was after a stall, which the clock has forgotten
    std::uint64_t m_lastTime = 0;                    // its time, 0 for none
    bool m_reachedEnd = false;                       // playing has come to m_endMs
    tOpenedFiles m_files;
    std::atomic<std::uint64_t> m_endMs{UINT64_MAX};  // playing ends before the first segment of this time or later
    std::atomic<bool> m_topSpeed{false};
    std::atomic<iReplaySource*> m_source{nullptr};
    std::atomic<std::uint64_t> m_unreadCnt{0};

    tWorker m_thread;
};
}  // namespace storage

#endif
