// The way to and from the network: sources and sinks of datagrams, and the transport that opens them.
//
// Shapes   whatever records, replays or simulates opens its sources and sinks through defaultTransport().
//          transports.cpp lists the transports; the first of the list, UDP, is the default.
// Owner    a transport outlives what it opened; a listener outlives its source.
// Threads  any. A source calls its listener once a datagram, on a thread of its own or, from openSources(), on one that
//          sources share, and no more after its destruction, which waits for a call under way.
// Errors   std::system_error leaves openSource() where there is no thread to receive on. Other failures are reported
//          once on standard error by what could not be opened, which stays silent then.
#ifndef KESTOVA_TRANSPORT_H
#define KESTOVA_TRANSPORT_H

#include <memory>
#include <stdint.h>
#include <vector>

#include "UdpSocket/datagramreceiver.h"
#include "UdpSocket/kestovaapi.h"
#include "UdpSocket/netaddress.h"
#include "UdpSocket/udpsocket.h"

namespace net
{
// One group being received.
class KESTOVA_API iDatagramSource
{
public:
    virtual ~iDatagramSource() = default;
    virtual bool joined() const = 0;
    virtual tUdpReceiverCounters counters() const = 0;
};

// One destination. Receivers on this machine receive what is sent, too.
class KESTOVA_API iDatagramSink
{
public:
    virtual ~iDatagramSink() = default;
    // Returns whether it went out; if not, errno is the reason. Does not wait.
    virtual bool send(const char* data, int len) = 0;
};

// A group to receive, and its listener.
struct tSourceRequest
{
    iDatagramListener* listener;
    NetAddress group;
};

class KESTOVA_API iTransport
{
public:
    virtual ~iTransport() = default;
    // Returns whether a recorder waits with its groups until the local interface has an address. If not, sources and
    // sinks open with `localIp` 0 too.
    virtual bool needsLocalAddress() const = 0;
    // Open on the interface whose address is `localIp` (0: the transport chooses); `recBuffSize` is the least size in
    // bytes of the receive buffer.
    virtual std::unique_ptr<iDatagramSource> openSource(iDatagramListener* listener, const NetAddress& group,
                                                        uint32_t localIp, int recBuffSize) = 0;
    virtual std::unique_ptr<iDatagramSink> openSink(const NetAddress& destination, uint32_t localIp) = 0;
    // Opens a source for each request, in their order, for recorders: with UDP one thread calls all listeners, with
    // every datagram within about 10 ms of its arrival and in the order of arrival, so that many datagrams cost one
    // wake-up; their times of arrival never fall unless the system clock is set back. A listener must not wait for
    // another one. A source that ends has delivered what had arrived before.
    virtual std::vector<std::unique_ptr<iDatagramSource>> openSources(const std::vector<tSourceRequest>& requests,
                                                                      uint32_t localIp, int recBuffSize);
};

// Returns the first transport of the list. Always the same object, never destroyed.
KESTOVA_API iTransport& defaultTransport();
}  // namespace net

#endif
