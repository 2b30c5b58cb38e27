#include "KestovaUtils/internal/addressnotifier.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "UdpSocket/consoleprint.h"

namespace utils
{
void tAddressNotifier::add(iMultiRadarCheckerListener* listener)
{
    if (listener == nullptr)
        return;
    m_worker.wake([&] {
        if (find(listener) == m_entries.end())
            m_entries.push_back({listener, {m_localIp}});
    });
    startThread();
}

void tAddressNotifier::remove(iMultiRadarCheckerListener* listener)
{
    if (listener == nullptr)
        return;
    {
        const tWorker::tLock held = m_worker.lock();
        const auto entry = find(listener);
        if (entry != m_entries.end())
            m_entries.erase(entry);
    }
    m_calls.wait(listener);
}

void tAddressNotifier::changed(std::uint32_t localIp)
{
    m_worker.wake([&] {
        m_localIp = localIp;
        for (tEntry& entry : m_entries)
            entry.pending.push_back(localIp);
    });
}

// Retries with the next listener if the system fails to start the thread.
void tAddressNotifier::startThread()
{
    const std::lock_guard<std::mutex> guard(m_startMutex);
    try
    {
        if (!m_started)
            m_started = m_worker.start([this] { notifyUntilStopped(); });
    }
    catch (const std::system_error& refused)
    {
        errno = refused.code().value();
        Kestova::console::printSystemError("MultiRadarClient: cannot start its thread");
    }
}

// Takes an entry and begins its call under one lock: a removal precedes both or waits for the call.
void tAddressNotifier::notifyUntilStopped()
{
    tWorker::tLock held = m_worker.lock();
    tNotice notice;
    while (m_worker.wait(held, [&] { return take(notice); }))
    {
        const tObserverCalls::tCall underWay(m_calls, [&] { return notice.listener; });
        held.unlock();
        notice.listener->OnLocalIpChanged(notice.localIp);
        held.lock();
    }
}

std::vector<tAddressNotifier::tEntry>::iterator tAddressNotifier::find(iMultiRadarCheckerListener* listener)
{
    return std::find_if(m_entries.begin(), m_entries.end(),
                        [&](const tEntry& entry) { return entry.listener == listener; });
}

bool tAddressNotifier::take(tNotice& notice)
{
    for (tEntry& entry : m_entries)
    {
        if (entry.pending.empty())
            continue;
        notice = {entry.listener, entry.pending.front()};
        entry.pending.pop_front();
        return true;
    }
    return false;
}
}  // namespace utils
