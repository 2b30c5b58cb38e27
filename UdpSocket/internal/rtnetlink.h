// tRtnetlink: asks the kernel for its tables of links, addresses and routes, and watches their changes.
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

    // The interfaces now; the default route is looked up only on request, since routing tables can be long. Nothing
    // if the kernel does not answer.
    std::optional<tInterfaceTable> interfaces(bool withDefaultRoute);

    // Can be read when links, addresses or routes have changed.
    int changes() const { return m_changes.get(); }
    // Takes all that is waiting there; interfaces() returns what it has become.
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
