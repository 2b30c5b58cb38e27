#include "KestovaStorage/internal/playback/playcontrol.h"

#include <utility>

namespace storage
{
// The right to open, stop, jump or close: one thread at a time.
class tPlayControl::tTurn
{
public:
    explicit tTurn(tPlayControl& control) : m_control(control)
    {
        tWorker::tLock held = control.m_player.lock();
        ++control.m_waiters;
        control.m_turnFree.wait(held, [&] { return !control.m_busy; });
        --control.m_waiters;
        control.m_busy = true;
    }
    ~tTurn()
    {
        {
            const tWorker::tLock held = m_control.m_player.lock();
            m_control.m_busy = false;
        }
        m_control.m_player.notify();
        m_control.m_turnFree.notify_all();
    }
    tTurn(const tTurn&) = delete;
    tTurn& operator=(const tTurn&) = delete;

private:
    tPlayControl& m_control;
};

tPlayControl::~tPlayControl()
{
    close();
    m_player.end();
}

bool tPlayControl::open(const tPaths& paths, tObserver observer)
{
    return carryOut({tCommand::eOpen, paths, std::move(observer)});
}

bool tPlayControl::stop()
{
    return carryOut({tCommand::eStop});
}

bool tPlayControl::jump(double fraction)
{
    return carryOut({tCommand::eJump, {}, {}, fraction});
}

void tPlayControl::close()
{
    carryOut({tCommand::eClose});
}

bool tPlayControl::carryOut(const tCommand& command)
{
    if (m_player.inside())
        return defer(command);
    const tTurn turn(*this);
    return execute(command);
}

// Returns false for what is not possible now.
bool tPlayControl::defer(const tCommand& command)
{
    {
        const tWorker::tLock held = m_player.lock();
        if ((command.kind == tCommand::eStop && !m_player.active()) ||
            (command.kind == tCommand::eJump && !m_player.opened()))
            return false;
        m_deferred.push_back(command);
        m_player.interrupt();
    }
    m_player.notify();
    return true;
}

bool tPlayControl::execute(const tCommand& command)
{
    switch (command.kind)
    {
    case tCommand::eOpen:
        doClose();
        m_player.startOpening(command.paths, command.observer);
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

// The player reports its end between the two statuses.
bool tPlayControl::doStop()
{
    if (!m_player.hold())
        return false;
    m_player.report(eReplayPlaying);
    m_player.endPlaying();
    m_player.leaveStopped();
    m_player.report(eReplayStopped);
    return true;
}

bool tPlayControl::doJump(double fraction)
{
    {
        const tWorker::tLock held = m_player.lock();
        if (!m_player.opened())
            return false;
    }
    doStop();
    m_player.setStart(fraction);
    m_player.report(eReplayPlaying);
    m_player.startPlaying();
    return true;
}

void tPlayControl::doClose()
{
    m_player.cancelOpening();
    doStop();
    m_player.close();
    std::deque<tCommand> forgotten;  // its observers are released without the lock
    const tWorker::tLock held = m_player.lock();
    if (!m_player.isSelf())
        forgotten.swap(m_deferred);  // deferred before this close
}

// Finding a command and taking the turn for it are one step, under the lock.
bool tPlayControl::takeTurn()
{
    const bool taken = ready();
    m_busy |= taken;
    return taken;
}

// Carries out the first command in any case, and more until another thread waits for the turn.
void tPlayControl::run()
{
    for (bool more = true; more;)
    {
        tCommand command{tCommand::eClose};
        {
            const tWorker::tLock held = m_player.lock();
            command = std::move(m_deferred.front());
            m_deferred.pop_front();
        }
        execute(command);
        const tWorker::tLock held = m_player.lock();
        more = waiting() && m_waiters == 0;
        m_busy = more;
    }
    m_turnFree.notify_all();
}
}  // namespace storage
