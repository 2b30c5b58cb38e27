#include "KestovaStorage/internal/radar/groupreceivers.h"

#include <algorithm>
#include <cstdio>
#include <system_error>
#include <thread>
#include <utility>

namespace Kestova
{
namespace
{
using tReceivers = std::vector<std::unique_ptr<net::UdpReceiver>>;

// A receiver ends when the callback it is in has returned. Each has a thread to wait on, so that many slow callbacks
// take no longer than the slowest.
void endAll(tReceivers receivers)
{
    std::vector<std::thread> waiting;
    waiting.reserve(receivers.size());
    for (std::unique_ptr<net::UdpReceiver>& receiver : receivers)
    {
        try
        {
            waiting.emplace_back([ending = std::move(receiver)]() mutable { ending.reset(); });
        }
        catch (const std::system_error&)
        {
            // No thread to be had: the receiver has ended with the lambda that held it.
        }
    }
    for (std::thread& thread : waiting)
        thread.join();
}
}  // namespace

void tGroupReceivers::open(const std::vector<tRadarGroup>& groups, std::uint32_t localIp)
{
    close();
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_recSockInfo = groups;
    }
    tReceivers receivers;
    receivers.reserve(groups.size());
    for (const tRadarGroup& group : groups)
        receivers.push_back(receiverOf(group, localIp));
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_receivers = std::move(receivers);
}

bool tGroupReceivers::close()
{
    tReceivers ending;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ending.swap(m_receivers);
    }
    endAll(std::move(ending));  // their last callbacks use the table
    std::vector<tRadarGroup> left;
    const std::lock_guard<std::mutex> lock(m_mutex);
    left.swap(m_recSockInfo);
    return !left.empty();
}

bool tGroupReceivers::find(const NetAddress& address, tUdpMsgInfo& msgInfo) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    // Twenty-one rows at most: a walk over them is faster than a tree.
    const auto row = std::find_if(m_recSockInfo.begin(), m_recSockInfo.end(), [&](const tRadarGroup& group) {
        return group.address.ip == address.ip && group.address.port == address.port;
    });
    if (row == m_recSockInfo.end())
        return false;
    msgInfo = row->msgInfo;
    return true;
}

std::vector<tGroupState> tGroupReceivers::states() const
{
    std::vector<tGroupState> states;
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (std::size_t i = 0; i < m_receivers.size(); ++i)
    {
        tGroupState state{m_recSockInfo[i], false, {}};
        if (const net::UdpReceiver* receiver = m_receivers[i].get())
        {
            state.joined = receiver->valid();
            state.counters = receiver->counters();
        }
        states.push_back(state);
    }
    return states;
}

std::unique_ptr<net::UdpReceiver> tGroupReceivers::receiverOf(const tRadarGroup& group, std::uint32_t localIp) const
try
{
    return std::make_unique<net::UdpReceiver>(m_listener, localIp, group.address, group.recBuffSize);
}
catch (const std::system_error& error)  // no thread to be had: the other groups are still worth recording
{
    std::fprintf(stderr, "Radar data saver: group %s:%u cannot be received: %s\n",
                 net::transAddr(group.address.ip).c_str(), unsigned{net::NtoHs(group.address.port)}, error.what());
    return nullptr;
}
}  // namespace Kestova
