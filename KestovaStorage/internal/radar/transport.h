// The network: sources and sinks of datagrams, and the transport that opens them.
//
// Shapes   UDP is the default, in udptransport.cpp. Another transport is a file of its own beside it, passed to
//          those who open sources or sinks, or returned by defaultTransport().
// Owner    a transport outlives what it opened; a listener outlives its source.
// Threads  any. A source calls its listener on a thread of its own, once a datagram, and no more after its destruction,
//          which waits for a call under way.
// Errors   openSource() throws std::system_error if no receive thread can be started. Other errors are reported once on
//          standard error by the source or sink that failed to open, which then receives or sends nothing.
#ifndef KESTOVA_STORAGE_RADAR_TRANSPORT_H
#define KESTOVA_STORAGE_RADAR_TRANSPORT_H

#include <cstdint>
#include <memory>

#include "UdpSocket/datagramreceiver.h"

namespace Kestova
{
// One group being received.
class iDatagramSource
{
public:
    virtual ~iDatagramSource() = default;
    virtual bool joined() const = 0;
    virtual net::tUdpReceiverCounters counters() const = 0;
};

// One destination. Receivers on this machine get the datagrams, too.
class iDatagramSink
{
public:
    virtual ~iDatagramSink() = default;
    virtual bool send(const char* data, int len) = 0;  // returns whether it was sent; does not wait
};

class iTransport
{
public:
    virtual ~iTransport() = default;
    // On the interface whose address is `localIp`; `recBuffSize` is the least size in bytes of the receive buffer.
    virtual std::unique_ptr<iDatagramSource> openSource(net::iDatagramListener* listener, const NetAddress& group,
                                                        std::uint32_t localIp, int recBuffSize) = 0;
    virtual std::unique_ptr<iDatagramSink> openSink(const NetAddress& destination, std::uint32_t localIp) = 0;
};

iTransport& defaultTransport();
}  // namespace Kestova

#endif
