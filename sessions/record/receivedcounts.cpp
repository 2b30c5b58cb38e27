#include "sessions/record/receivedcounts.h"

#include <algorithm>
#include <cstring>

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

// The thread that adds is the only one that writes: an addition needs no locked instruction.
void tReceivedCount::add(const char* data, int len)
{
    constexpr auto cRelaxed = std::memory_order_relaxed;
    const std::size_t size = static_cast<std::size_t>(std::max(len, 0));
    tDigest digest{m_hash.load(cRelaxed)};
    digest.add({data, size});
    m_hash.store(digest.hash, cRelaxed);
    m_bytes.store(m_bytes.load(cRelaxed) + size, cRelaxed);
    m_messages.store(m_messages.load(cRelaxed) + 1, cRelaxed);
}

tStreamCount tReceivedCount::now() const
{
    return {m_messages, m_bytes, {m_hash}};
}

tReceivedCount& tReceivedCounts::expect(const NetAddress& group, tReadWriteType kind)
{
    if (const tGroup* known = groupAt(group))
        return *known->count;
    m_groups.push_back(
        {group, net::transAddr(group.ip), net::NtoHs(group.port), kind, std::make_unique<tReceivedCount>()});
    return *m_groups.back().count;
}

tReceivedCount* tReceivedCounts::find(const char* dotted, int port) const
{
    const auto group = std::find_if(m_groups.begin(), m_groups.end(), [&](const tGroup& known) {
        return known.port == port && std::strcmp(known.dotted.c_str(), dotted) == 0;
    });
    return group != m_groups.end() ? group->count.get() : nullptr;
}

tStreamCounts tReceivedCounts::table() const
{
    tStreamCounts counts;
    for (const tGroup& group : m_groups)
        counts[keyFor(group.address, group.kind)] = group.count->now();
    return counts;
}

tStreamKey tReceivedCounts::keyOf(const NetAddress& group) const
{
    const tGroup* known = groupAt(group);
    return keyFor(group, known != nullptr ? known->kind : tReadWriteType{eOtherType});
}

const tReceivedCounts::tGroup* tReceivedCounts::groupAt(const NetAddress& address) const
{
    const auto group =
        std::find_if(m_groups.begin(), m_groups.end(), [&](const tGroup& known) { return known.address == address; });
    return group != m_groups.end() ? &*group : nullptr;
}
}  // namespace session
