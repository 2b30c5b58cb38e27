// The way to and from the network: sources and sinks of datagrams, and the transport that opens them.
//
// Shapes   UDP is the default, in udptransport.cpp. Another transport is a file of its own beside it, passed to
//          those who open sources or sinks, or returned by defaultTransport().
// Owner    a transport outlives what it opened; a listener outlives its source.
// Threads  any. A source calls its listener on a thread of its own, once a datagram, and no more after its destruction,
//          which waits for a call under way.
// Errors   std::system_error leaves openSource() where there is no thread to receive on. Other failures are reported
//          once on standard error by what could not be opened, which stays silent then.
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

// One destination. Receivers on this machine hear what is sent, too.
class iDatagramSink
{
public:
    virtual ~iDatagramSink() = default;
    virtual bool send(const char* data, int len) = 0;  // whether it went out; does not wait
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
