#include "KestovaStorage/internal/replay/senderpool.h"

#include <algorithm>

#include "UdpSocket/consoleprint.h"

namespace Kestova
{
bool tSenderPool::send(const NetAddress& address, const char* data, int len)
{
    return senderOf(address)->send(data, len);
}

std::size_t tSenderPool::size() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_sendSockInfo.size();
}

void tSenderPool::clear()
{
    std::map<NetAddress, tRow, tNetAddress_less> ending;
    const std::lock_guard<std::mutex> lock(m_mutex);
    ending.swap(m_sendSockInfo);
}

tSenderPool::tSender tSenderPool::senderOf(const NetAddress& address)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    auto row = m_sendSockInfo.find(address);
    if (row == m_sendSockInfo.end())
    {
        makeRoom();
        row = m_sendSockInfo.emplace(address, tRow{m_transport.openSink(address, m_localIp), 0}).first;
    }
    row->second.lastUse = ++m_uses;
    return row->second.sender;
}

void tSenderPool::makeRoom()
{
    if (m_sendSockInfo.size() < cMaxSenders)
        return;
    if (!m_limitReported)
        Kestova::console::printError(
            "Radar data replayer: more than %zu destinations, sockets are opened again and again\n", cMaxSenders);
    m_limitReported = true;
    m_sendSockInfo.erase(
        std::min_element(m_sendSockInfo.begin(), m_sendSockInfo.end(),
                         [](const auto& a, const auto& b) { return a.second.lastUse < b.second.lastUse; }));
}
}  // namespace Kestova
