// tRtnetlink: reads the kernel's tables of links, addresses and routes, and watches their changes.
//
// Belongs to the network namespace of the thread that constructs it. The owner locks.
#ifndef KESTOVA_NET_RTNETLINK_H
#define KESTOVA_NET_RTNETLINK_H

#include <optional>
#include <vector>

#include "UdpSocket/internal/interfacetable.h"
#include "common/descriptor.h"

struct nlmsghdr;

namespace net
{
class tRtnetlink
{
public:
    tRtnetlink();
    bool valid() const { return m_queries.valid() && m_changes.valid(); }  // if not, errno was set

    // Returns the present interfaces; nothing if the kernel does not answer. Reads the default route on request only,
    // because routing tables can be long.
    std::optional<tInterfaceTable> interfaces(bool withDefaultRoute);

    // Returns a descriptor that is readable after links, addresses or routes have changed.
    int changes() const { return m_changes.get(); }
    // Drops the notifications that wait there; interfaces() returns the new state.
    void discardChanges();

private:
    template <typename tVisit>
    bool dump(unsigned short request, tVisit visit);
    bool sendRequest(unsigned short request);
    template <typename tVisit>
    bool readAnswer(tVisit visit);

    tDescriptor m_queries;
    tDescriptor m_changes;
    unsigned int m_sequence = 0;
    std::vector<char> m_buffer;
};
}  // namespace net

#endif
