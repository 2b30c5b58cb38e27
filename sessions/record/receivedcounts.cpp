#include "sessions/record/receivedcounts.h"

#include "UdpSocket/udpsocket.h"

namespace session
{
using namespace recordings;

namespace
{
tStreamKey keyFor(const NetAddress& group, tReadWriteType kind)
{
    return tStreamKey::of(kind, group.ip, net::NtoHs(group.port));
}
}  // namespace

void tReceivedCounts::expect(const NetAddress& group, tReadWriteType kind)
{
    const std::lock_guard lock(m_mutex);
    if (m_kinds.emplace(group, kind).second)
        m_table[keyFor(group, kind)];
}

void tReceivedCounts::add(const NetAddress& group, const char* data, int len)
{
    const tStreamKey key = keyOf(group);
    const std::lock_guard lock(m_mutex);
    m_table[key].add({data, static_cast<std::size_t>(len > 0 ? len : 0)});
}

tStreamCounts tReceivedCounts::table() const
{
    const std::lock_guard lock(m_mutex);
    return m_table;
}

tStreamKey tReceivedCounts::keyOf(const NetAddress& group) const
{
    const std::lock_guard lock(m_mutex);
    const auto known = m_kinds.find(group);
    return keyFor(group, known != m_kinds.end() ? known->second : tReadWriteType{eOtherType});
}
}  // namespace session
