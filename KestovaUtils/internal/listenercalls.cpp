#include "KestovaUtils/internal/listenercalls.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <system_error>

namespace utils
{
void tListenerCalls::add(iMultiRadarCheckerListener* listener)
{
    if (listener == nullptr)
        return;
    m_worker.wake([&] {
        if (find(listener) == m_entries.end())
            m_entries.push_back({listener, {m_localIp}});
    });
    startThread();
}

void tListenerCalls::remove(iMultiRadarCheckerListener* listener)
{
    tWorker::tLock held = m_worker.lock();
    const auto entry = find(listener);
    if (entry != m_entries.end())
        m_entries.erase(entry);
    if (m_called != listener || listener == nullptr || m_worker.isSelf())
        return;
    const std::uint64_t call = m_calls;
    m_worker.wait(held, [&] { return m_called == nullptr || m_calls != call; });
}

void tListenerCalls::changed(std::uint32_t localIp)
{
    m_worker.wake([&] {
        m_localIp = localIp;
        for (tEntry& entry : m_entries)
            entry.untold.push_back(localIp);
    });
}

// A system that refuses the thread is asked again with the next listener.
void tListenerCalls::startThread()
{
    const std::lock_guard<std::mutex> guard(m_startMutex);
    try
    {
        if (!m_started)
            m_started = m_worker.start([this] { callUntilStopped(); });
    }
    catch (const std::system_error& refused)
    {
        errno = refused.code().value();
        std::perror("MultiRadarClient: cannot start its thread");
    }
}

void tListenerCalls::callUntilStopped()
{
    tWorker::tLock held = m_worker.lock();
    std::optional<tCall> call;
    while (m_worker.wait(held, [&] { return (call = takeCall()).has_value(); }))
    {
        m_called = call->listener;
        ++m_calls;
        held.unlock();
        call->listener->OnLocalIpChanged(call->localIp);
        held.lock();
        m_called = nullptr;
        m_worker.notify();
    }
}

std::vector<tListenerCalls::tEntry>::iterator tListenerCalls::find(iMultiRadarCheckerListener* listener)
{
    return std::find_if(m_entries.begin(), m_entries.end(),
                        [&](const tEntry& entry) { return entry.listener == listener; });
}

std::optional<tListenerCalls::tCall> tListenerCalls::takeCall()
{
    for (tEntry& entry : m_entries)
    {
        if (entry.untold.empty())
            continue;
        const tCall call{entry.listener, entry.untold.front()};
        entry.untold.pop_front();
        return call;
    }
    return std::nullopt;
}
}  // namespace utils
