// tPlayer: the replaying half of a storage object.
//
// Threads  one, the player's: it opens files, waits for the clock and hands segments over. It starts with the first
//          open() and lives as long as the object. Statuses of pause(), stop(), jump() and close() are told on the
//          thread that called, all others on the player's.
// Control  open(), stop(), jump() and close() are serialised by taking turns (m_controlBusy); no lock is held during a
//          callback. Called from inside a callback they are put off and the player carries them out as soon as the
//          callback has returned. pause() and setSpeed() never wait.
// Locks    m_player's lock guards all state below; the recording belongs to the player while it opens or
//          plays, and to whoever has the turn while it does not.
#ifndef KESTOVA_STORAGE_PLAYBACK_PLAYER_H
#define KESTOVA_STORAGE_PLAYBACK_PLAYER_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "KestovaStorage/internal/playback/openedfiles.h"
#include "KestovaStorage/internal/playback/playclock.h"
#include "KestovaStorage/replayobserver.h"
#include "common/observers.h"
#include "common/worker.h"

namespace storage
{
class tPlayer
{
public:
    explicit tPlayer(const std::string& specifySuffix) : m_specifySuffix(specifySuffix) {}
    ~tPlayer();

    using tObserver = std::shared_ptr<iDataReadReplayObserver>;

    // Keeps the observer until it is called no more: until another is opened or everything is closed.
    bool open(const std::string& path, tObserver observer);
    bool pause(bool pause);
    void setSpeed(double rate);
    bool stop();
    bool jump(double fraction);
    void close();
    std::uint64_t unreadCnt() const { return m_unreadCnt; }  // segments that were due and could not be read

private:
    enum class eJob
    {
        eNone,
        eOpen,
        ePlay
    };
    struct tCommand
    {
        enum
        {
            eOpen,
            eStop,
            eJump,
            eClose
        } kind;
        std::string path{};
        tObserver observer{};
        double fraction = 0.0;
    };
    class tTurn;

    // control
    bool carryOut(const tCommand& command);
    bool putOff(const tCommand& command);
    bool execute(const tCommand& command);
    void doOpen(const std::string& path, const tObserver& observer);
    bool doStop();
    bool doJump(double fraction);
    void doClose();
    void startPlayer();
    void endPlaying();
    void tellStatus(std::uint8_t status);

    // the player's thread
    void run();
    bool takeTurnForPutOff();
    void runPutOff();
    void openFiles();
    void tellOpening();
    void tellSpan();
    void openPath();
    bool openingIsOver();
    void play();
    bool waitFor(std::uint64_t key);
    bool mustLeave() const { return m_stopFlag || mustRunPutOff(); }
    // What was asked for inside a callback may have to wait for its turn: nothing is handed over meanwhile.
    bool mustHold() const { return m_hold || !m_putOff.empty() || m_clock.paused(); }
    bool mustRunPutOff() const { return !m_putOff.empty() && !m_controlBusy && m_turnWaiters == 0; }
    void deliver(const tTimelineSegment& place);

    const std::string m_specifySuffix;
    tObserverGate<iDataReadReplayObserver> m_observer;
    tObserver m_openedFor;  // whom m_observer calls; changed by whoever has the turn

    std::condition_variable m_turnFree;  // with m_player's lock: m_controlBusy was cleared
    std::condition_variable m_ended;     // with m_player's lock: opening or playing has ended

    // guarded by m_player's lock
    bool m_controlBusy = false;      // somebody has the turn
    unsigned int m_turnWaiters = 0;  // they go first: an observer that always asks for more must not shut them out
    std::deque<tCommand> m_putOff;   // commands from inside callbacks
    eJob m_job = eJob::eNone;        // what the player is to do next
    std::string m_path;              // what to open
    bool m_cancel = false;           // opening is to end early
    bool m_opening = false;          // the player opens, or is about to
    bool m_preReaded = false;        // opening has finished
    bool m_active = false;           // playing was started and not stopped since; it may have ended
    bool m_playing = false;          // the player plays, or is about to
    bool m_hold = false;             // a stop has begun: hand nothing over
    bool m_stopFlag = false;         // playing is to end
    std::uint64_t m_startKey = 0;    // where it is to begin
    tPlayClock m_clock;
    unsigned int m_clockChanges = 0;  // how often speed or pause were set

    tOpenedFiles m_recording;
    std::atomic<std::uint64_t> m_unreadCnt{0};

    tWorker m_player;
};
}  // namespace storage

#endif
