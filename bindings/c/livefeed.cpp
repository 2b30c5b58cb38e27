#include "bindings/c/livefeed.h"

#include <utility>

#include "KestovaUtils/timeparser.h"
#include "UdpSocket/udpsocket.h"

namespace binding
{
namespace
{
constexpr int cReceiveBuffer = 16 << 20;
constexpr std::size_t cMostBytes = 64 << 20;
constexpr std::size_t cOverhead = 64;  // of a datagram in the queue
}  // namespace

tLiveFeed::tLiveFeed(const tSource& source)
    : m_live(source.live()), m_stop(source.stop),
      m_source(net::defaultTransport().openSource(this, m_live.group, m_live.localIp, cReceiveBuffer))
{}

// Runs on the receiver's thread, where nothing may be thrown.
void tLiveFeed::OnDatagram(const net::tReceivedDatagram& datagram)
try
{
    const std::uint64_t now =
        datagram.arrived_ms != 0 ? datagram.arrived_ms : utils::time::tTimeParser::GetCurrentTime_ms();
    tWaiting waiting{now, std::string(datagram.data, static_cast<std::size_t>(datagram.len))};
    const std::lock_guard<std::mutex> lock(m_stop->m_mutex);
    const std::size_t size = waiting.bytes.size() + cOverhead;
    if (m_queuedBytes + size > cMostBytes)
    {
        ++m_dropped;
        return;
    }
    m_queuedBytes += size;
    m_queue.push_back(std::move(waiting));
    m_stop->m_changed.notify_all();
}
catch (const std::bad_alloc&)
{
    ++m_dropped;
}

kestova_result tLiveFeed::next(tMessages& messages, std::size_t most, const tDeadline& deadline)
{
    m_present.clear();
    {
        std::unique_lock<std::mutex> lock(m_stop->m_mutex);
        const auto due = [&] { return m_stop->requested() || !m_queue.empty(); };
        if (deadline)
            m_stop->m_changed.wait_until(lock, *deadline, due);
        else
            m_stop->m_changed.wait(lock, due);
        if (m_stop->requested())
            return KESTOVA_CANCELLED;
        for (; !m_queue.empty() && m_present.size() < most; m_queue.pop_front())
        {
            m_queuedBytes -= m_queue.front().bytes.size() + cOverhead;
            m_present.push_back(std::move(m_queue.front()));
        }
    }
    messages.clear();
    for (const tWaiting& one : m_present)
        messages.push_back(
            {one.timeMs,
             true,
             {m_live.info, m_sequence++, m_live.group.ip, net::NtoHs(m_live.group.port), one.timeMs, one.bytes}});
    return messages.empty() ? KESTOVA_TIMEOUT : KESTOVA_OK;
}
}  // namespace binding
