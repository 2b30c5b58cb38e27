// The way to and from the network: sources and sinks of datagrams, and the transport that opens them.
//
// Shapes   whatever records, replays or simulates opens its sources and sinks through defaultTransport().
//          transports.cpp lists the transports; the first of the list, UDP, is the default.
// Owner    a transport outlives what it opened; a listener outlives its source.
// Threads  any. A source calls its listener on a thread of its own, once a datagram, and no more after its destruction,
//          which waits for a call under way.
// Errors   std::system_error leaves openSource() where there is no thread to receive on. Other failures are reported
//          once on standard error by what could not be opened, which stays silent then.
#ifndef KESTOVA_TRANSPORT_H
#define KESTOVA_TRANSPORT_H

#include <memory>
#include <stdint.h>

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
};

// Returns the first transport of the list. Always the same object, never destroyed.
KESTOVA_API iTransport& defaultTransport();
}  // namespace net

#endif
