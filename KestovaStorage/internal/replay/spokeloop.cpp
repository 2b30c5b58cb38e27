#include "KestovaStorage/internal/replay/spokeloop.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "UdpSocket/consoleprint.h"

namespace Kestova
{
tCircleSpokes::~tCircleSpokes()
{
    halt();
    wait();
}

void tCircleSpokes::feed(tSpokeString spoke)
{
    if (!turning())
        m_spokeBuff.append(std::move(spoke));
}

void tCircleSpokes::start()
{
    if (turning() || m_observer == nullptr || m_spokeBuff.empty())
        return;
    wait();
    m_replaying = true;
    m_zeroSync.enter();
    try
    {
        m_loop.start([this] { turn(); });
    }
    catch (const std::exception& error)  // the system refuses a thread
    {
        m_replaying = false;
        m_zeroSync.leave();
        Kestova::console::printError("Radar data replayer: a circle loop does not turn: %s\n", error.what());
    }
}

void tCircleSpokes::halt()
{
    m_replaying = false;
    m_zeroSync.wake();
    m_loop.wake([] {});
}

void tCircleSpokes::wait()
{
    m_loop.stop();
}

void tCircleSpokes::turn()
{
    m_last.reset();
    m_syncedInPass = false;
    tTime passStart = tWorker::tClock::now();
    while (emitPass(passStart))
        passStart = std::max(passStart + cPass, tWorker::tClock::now());
    m_zeroSync.leave();
}

// Emits one pass over the buffer. Returns false once the loop is to stop. Spokes are `pause` apart; the rest of the
// division is waited for at the end of the pass. More than 2,000 spokes are sent back to back, and a pass still lasts 2
// s.
bool tCircleSpokes::emitPass(tTime& passStart)
{
    const std::chrono::milliseconds pause(cPass.count() / static_cast<std::int64_t>(m_spokeBuff.size()));
    for (std::size_t i = 0; i < m_spokeBuff.size(); ++i)
    {
        const tSpokeString& spoke = m_spokeBuff[i];
        if (!sleepUntil(passStart + pause * static_cast<std::int64_t>(i + 1)))
            return false;
        if (startsRevolution(spoke, i == 0))
            waitAtZero(passStart);
        if (!m_replaying)
            return false;
        m_last = spoke.azm;
        emit(spoke);
    }
    return sleepUntil(passStart + cPass);
}

// A falling azimuth begins a revolution. A loop whose azimuth never falls begins one in each pass: the others would
// wait for it forever.
bool tCircleSpokes::startsRevolution(const tSpokeString& spoke, bool firstOfPass)
{
    const bool due = firstOfPass && !m_syncedInPass;
    const bool starts = m_last && (spoke.azm < *m_last || due);
    m_syncedInPass = !firstOfPass && (m_syncedInPass || starts);
    return starts;
}

bool tCircleSpokes::sleepUntil(tTime due)
{
    if (tWorker::tClock::now() < due)
    {
        tWorker::tLock held = m_loop.lock();
        m_loop.waitUntil(held, due, [this] { return !m_replaying; });
    }
    return m_replaying;
}

// Time spent waiting for the other loops does not count, so that the next spokes are not sent in a burst.
void tCircleSpokes::waitAtZero(tTime& passStart)
{
    const tTime arrived = tWorker::tClock::now();
    m_zeroSync.arrive(m_replaying);
    passStart += tWorker::tClock::now() - arrived;
    if (m_printFlag)
        Kestova::console::print("...........................\r\n");
}

void tCircleSpokes::emit(const tSpokeString& spoke)
{
    if (m_printFlag)
        Kestova::console::print("%08X: size %d azm %d\r\n",
                                static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(this)),
                                static_cast<int>(m_spokeBuff.size()), static_cast<int>(spoke.azm));
    m_observer->UpdateCircleSpokeReplay(spoke);
}

void tSpokeLoops::feed(int number, tSpokeString spoke)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    auto place = m_circleSpokeLoops.find(number);
    if (place == m_circleSpokeLoops.end())
    {
        if (number < 0 || m_circleSpokeLoops.size() >= cMaxLoops)
            return refuse(number);
        place = m_circleSpokeLoops.emplace(number, std::make_unique<tCircleSpokes>(m_observer)).first;
    }
    place->second->feed(std::move(spoke));
}

void tSpokeLoops::refuse(int number)
{
    if (!m_refusalReported)
        Kestova::console::printError(
            "Radar data replayer: no more than %zu circle loops, spokes of loop %d are not kept\n", cMaxLoops, number);
    m_refusalReported = true;
}

void tSpokeLoops::run(bool on)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (const auto& [number, loop] : m_circleSpokeLoops)
        on ? loop->start() : loop->halt();
    if (!on)
        for (const auto& [number, loop] : m_circleSpokeLoops)
            loop->wait();
}
}  // namespace Kestova
