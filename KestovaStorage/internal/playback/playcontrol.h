// tPlayControl: the replaying half of a storage object: serialises open, stop, jump and close.
//
// Threads  any. open(), stop(), jump() and close() take turns. From inside a callback they are deferred: the player's
//          thread carries them out as soon as the callback has returned. pause() and setSpeed() never wait.
// Locks    the player's lock guards the turn and the deferred commands. No lock is held during a callback.
#ifndef KESTOVA_STORAGE_PLAYBACK_PLAYCONTROL_H
#define KESTOVA_STORAGE_PLAYBACK_PLAYCONTROL_H

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <string>

#include "KestovaStorage/internal/playback/player.h"

namespace storage
{
class tPlayControl final : private iDeferredCommands
{
public:
    using tObserver = tPlayer::tObserver;
    using tPaths = tPlayer::tPaths;

    explicit tPlayControl(const std::string& specifySuffix) : m_player(specifySuffix, *this) {}
    ~tPlayControl();
    tPlayControl(const tPlayControl&) = delete;
    tPlayControl& operator=(const tPlayControl&) = delete;

    // Keeps the observer until other paths are opened or everything is closed.
    bool open(const tPaths& paths, tObserver observer);
    bool stop();
    bool jump(double fraction);
    void close();
    bool pause(bool pause) { return m_player.pause(pause); }
    void setSpeed(tReplaySpeed speed) { m_player.setSpeed(speed); }
    void setEnd(std::uint64_t timeMs) { m_player.setEnd(timeMs); }
    void setTopSpeed(bool on) { m_player.setTopSpeed(on); }
    void setSource(iReplaySource* source) { m_player.setSource(source); }
    std::uint64_t unreadCnt() const { return m_player.unreadCnt(); }
    int fineTime() const { return m_player.fineTime(); }
    std::int64_t dueTime_ns() const { return m_player.dueTime_ns(); }

private:
    struct tCommand
    {
        enum
        {
            eOpen,
            eStop,
            eJump,
            eClose
        } kind;
        tPaths paths{};
        tObserver observer{};
        double fraction = 0.0;
    };
    class tTurn;

    bool carryOut(const tCommand& command);
    bool defer(const tCommand& command);
    bool execute(const tCommand& command);
    bool doStop();
    bool doJump(double fraction);
    void doClose();

    bool waiting() const override { return !m_deferred.empty(); }
    bool ready() const override { return waiting() && !m_busy && m_waiters == 0; }
    bool takeTurn() override;
    void run() override;

    std::condition_variable m_turnFree;  // with the player's lock: m_busy was cleared
    // guarded by the player's lock
    bool m_busy = false;              // a thread has the turn
    unsigned int m_waiters = 0;       // they go first, so that an observer that always defers more cannot starve them
    std::deque<tCommand> m_deferred;  // from inside callbacks

    tPlayer m_player;
};
}  // namespace storage

#endif
