#include "sessions/monitor/monitorsession.h"

#include <algorithm>

namespace session
{
namespace
{
using namespace std::chrono_literals;
using tSteady = std::chrono::steady_clock;

constexpr int cReceiveBuffer = 16 * 1024 * 1024;  // as a recorder's
constexpr auto cRateTime = 3s;

std::uint64_t inMs(tSteady::duration time)
{
    return static_cast<std::uint64_t>(
        std::max<std::int64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(time).count(), 0));
}
}  // namespace

tMonitorSession::tMonitorSession(const std::vector<tStreamGroup>& groups, std::uint32_t localIp)
{
    for (const tStreamGroup& group : groups)
    {
        const auto same = [&](const auto& known) { return known->stream().address == group.address; };
        if (std::none_of(m_groups.begin(), m_groups.end(), same))  // a recorder has one row a group, too
            m_groups.push_back(std::make_unique<tGroup>(group));
    }
    for (const auto& group : m_groups)
        group->open(localIp);
}

tMonitorSession::~tMonitorSession()
{
    for (const auto& group : m_groups)
        group->close();
}

std::vector<NetAddress> tMonitorSession::notJoined() const
{
    std::vector<NetAddress> groups;
    for (const auto& group : m_groups)
    {
        if (!group->joined())
            groups.push_back(group->stream().address);
    }
    return groups;
}

std::vector<tMonitoredStream> tMonitorSession::update()
{
    const tTime now = tSteady::now();
    std::vector<tMonitoredStream> views;
    for (const auto& group : m_groups)
    {
        tMonitoredStream view = group->view(now, m_started);
        auto& samples = m_samples[view.key];
        samples.push_back({now, view.datagrams, view.bytes});
        while (now - samples.front().time > cRateTime)
            samples.pop_front();
        const tSample& first = samples.front();
        const bool isFirst = samples.size() == 1;
        const double seconds = std::chrono::duration<double>(now - (isFirst ? m_started : first.time)).count();
        const std::uint64_t datagrams = isFirst ? view.datagrams : view.datagrams - first.datagrams;
        const std::uint64_t bytes = isFirst ? view.bytes : view.bytes - first.bytes;
        view.datagramsPerSecond = seconds > 0.0 ? static_cast<double>(datagrams) / seconds : 0.0;
        view.bytesPerSecond = seconds > 0.0 ? static_cast<double>(bytes) / seconds : 0.0;
        views.push_back(view);
    }
    return views;
}

void tMonitorSession::tGroup::open(std::uint32_t localIp)
{
    m_source = net::defaultTransport().openSource(this, m_stream.address, localIp, cReceiveBuffer);
}

// The kernel's time, where there is one: the time of this call has our own scheduling in it.
void tMonitorSession::tGroup::OnDatagram(const net::tReceivedDatagram& datagram)
{
    const auto now = tSteady::now();
    const auto arrived = datagram.arrived_ns != 0 ? static_cast<std::int64_t>(datagram.arrived_ns)
                                                  : std::int64_t{now.time_since_epoch() / 1ns};
    const std::lock_guard lock(m_mutex);
    m_arrivals.add(arrived, static_cast<std::uint64_t>(std::max(datagram.len, 0)));
    m_last = now;
}

tMonitoredStream tMonitorSession::tGroup::view(tTime now, tTime started) const
{
    tMonitoredStream view;
    view.key = m_stream.key();
    view.isShared = m_stream.isShared;
    view.kernelDropped = m_source->counters().kernelDropped;
    const std::lock_guard lock(m_mutex);
    view.datagrams = m_arrivals.datagrams();
    view.bytes = m_arrivals.bytes();
    view.heard = m_arrivals.datagrams() != 0;
    view.silentMs = inMs(now - (view.heard ? m_last : started));
    view.longestSilenceMs =
        std::max(view.silentMs, static_cast<std::uint64_t>(m_arrivals.longestInterval() / 1'000'000));
    view.jitter = m_arrivals.jitter();
    return view;
}
}  // namespace session
