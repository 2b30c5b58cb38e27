#include "KestovaStorage/internal/recording/writeobservation.h"

#include <algorithm>
#include <system_error>

#include "UdpSocket/consoleprint.h"

namespace storage
{
namespace
{
constexpr std::size_t cSegmentsACall = 1024;  // their descriptions stay in a core's cache
constexpr std::size_t cMostSpares = 16;
constexpr std::size_t cWakeAt = 2 << 20;  // bytes of blocks that wait while the writer goes on
}  // namespace

void tWriteObservation::fileStarted(const std::string& path, const tFileId& id)
{
    if (active())
        post({.kind = tEvent::eStarted, .path = path, .id = id});
}

void tWriteObservation::written(tWrittenRun& run)
{
    if (!active() || run.count == 0)
        return;
    tWrittenRun next;
    {
        const tWorker::tLock held = m_thread.lock();
        if (!m_spares.empty())
        {
            next = std::move(m_spares.back());
            m_spares.pop_back();
        }
    }
    std::swap(run, next);
    post({.kind = tEvent::eWritten, .run = std::move(next)});
}

void tWriteObservation::lost(std::uint64_t count)
{
    if (active() && count != 0)
        post({.kind = tEvent::eLost, .count = count});
}

void tWriteObservation::fileFinished(const std::string& path)
{
    if (active())
        post({.kind = tEvent::eFinished, .path = path});
}

void tWriteObservation::release(std::unique_ptr<tSegmentBlock> block)
{
    post({.kind = tEvent::eReleased, .block = std::move(block)});
    tWorker::tLock held = m_thread.lock();
    if (m_behind >= cWakeAt)
        m_thread.notify();
    m_thread.waitUntil(held, tWorker::tClock::time_point::max(), [this] { return m_behind < cMostBehind; });
}

void tWriteObservation::callWaiting()
{
    if (active())
        m_thread.notify();
}

void tWriteObservation::waitUntilCalled()
{
    tWorker::tLock held = m_thread.lock();
    m_thread.notify();
    const std::uint64_t target = m_postedCnt;
    m_thread.waitUntil(held, tWorker::tClock::time_point::max(), [&] { return m_calledCnt >= target; });
}

void tWriteObservation::compressed(const std::string& path, const std::string& compressedPath)
{
    iWriteObserver* const observer = m_observer;
    if (observer == nullptr)
        return;
    waitUntilCalled();
    observer->FileCompressed(path.c_str(), compressedPath.c_str());
}

void tWriteObservation::post(tEvent event)
{
    const bool onThread = startThread();
    if (!onThread)
        call(event);
    const bool mayWait = onThread && (event.kind == tEvent::eWritten || event.kind == tEvent::eReleased);
    {
        const tWorker::tLock held = m_thread.lock();
        ++m_postedCnt;
        m_calledCnt += onThread ? 0 : 1;
        m_behind += onThread && event.block ? event.block->size() : 0;
        if (onThread)
            m_events.push_back(std::move(event));
    }
    if (!mayWait)
        m_thread.notify();
}

bool tWriteObservation::startThread()
try
{
    return m_thread.running() || m_thread.start([this] { work(); });
}
catch (const std::system_error& error)
{
    Kestova::console::printError("no thread to follow the recording on: %s\n", error.what());
    return false;
}

void tWriteObservation::work()
{
    for (;;)
    {
        std::deque<tEvent> events;
        {
            tWorker::tLock held = m_thread.lock();
            if (!m_thread.wait(held, [this] { return !m_events.empty(); }))
                return;
            events.swap(m_events);
        }
        for (tEvent& event : events)
        {
            const std::size_t released = event.block ? event.block->size() : 0;
            call(event);
            m_thread.wake([&] {
                ++m_calledCnt;
                m_behind -= released;
                if (event.kind == tEvent::eWritten && m_spares.size() < cMostSpares)
                    m_spares.push_back(std::move(event.run));
            });
        }
    }
}

void tWriteObservation::call(tEvent& event)
{
    if (event.block)
        return m_recycle(std::move(event.block));
    iWriteObserver* const observer = m_observer;
    if (observer == nullptr)
        return;
    switch (event.kind)
    {
    case tEvent::eStarted:
        return observer->FileStarted(event.path.c_str(), event.id);
    case tEvent::eWritten:
        return callWritten(*observer, event.run);
    case tEvent::eLost:
        return observer->SegmentsLost(event.count);
    case tEvent::eFinished:
        return observer->FileFinished(event.path.c_str());
    case tEvent::eReleased:
        return;
    }
}

void tWriteObservation::callWritten(iWriteObserver& observer, const tWrittenRun& run)
{
    const char* bytes = run.bytes;
    for (std::size_t done = 0; done < run.count;)
    {
        const std::size_t count = std::min(cSegmentsACall, run.count - done);
        m_segments.clear();
        for (std::size_t i = done; i < done + count; ++i)
        {
            const tNormalIndexTable record = decodeNormal(run.slots[i]);
            const std::uint16_t us = i < run.fineTimes.size() ? run.fineTimes[i] : cNoFineTime;
            m_segments.push_back({bytes, record.len, record.tim, us, record.pos});
            bytes += record.len;
        }
        observer.SegmentsWritten(m_segments.data(), count);
        done += count;
    }
}
}  // namespace storage
