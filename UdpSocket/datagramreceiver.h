// tDatagramReceiver: net::UdpReceiver with addresses as numbers. It formats no text for a datagram.
#ifndef KESTOVA_DATAGRAMRECEIVER_H
#define KESTOVA_DATAGRAMRECEIVER_H

#include <memory>
#include <stdint.h>

#include "UdpSocket/kestovaapi.h"
#include "UdpSocket/netaddress.h"
#include "UdpSocket/udpsocket.h"

namespace net
{
// One datagram: `len` bytes at `data` (0 for an empty one), which may be changed in place.
struct tReceivedDatagram
{
    NetAddress from;
    NetAddress group;  // of the receiver
    char* data;
    int len;
    uint64_t arrived_ms;  // when the kernel received it: ms since the epoch, by the system clock; 0 if it is not known
    uint64_t arrived_ns;  // the same in ns
};

class KESTOVA_API iDatagramListener
{
public:
    virtual ~iDatagramListener() = default;
    // Called on the receiver's own thread, one call at a time for one receiver; receivers of different groups call at
    // the same time. The datagram is valid during the call only. Must not throw.
    virtual void OnDatagram(const tReceivedDatagram& datagram) = 0;
};

// Keeps every promise that udpsocket.h makes for net::UdpReceiver.
class KESTOVA_API tDatagramReceiver
{
public:
    tDatagramReceiver(iDatagramListener* listener, uint32_t localIp, const NetAddress& group, int recBuffSize);
    ~tDatagramReceiver();
    tDatagramReceiver(const tDatagramReceiver&) = delete;
    tDatagramReceiver& operator=(const tDatagramReceiver&) = delete;

    bool valid() const;
    tUdpReceiverCounters counters() const;
    int receiveBufferSize() const;

protected:
    // For net::UdpReceiver: the receiver owns the listener and keeps it until its last call has returned.
    KESTOVA_HIDDEN tDatagramReceiver(std::unique_ptr<iDatagramListener> listener, uint32_t localIp,
                                     const NetAddress& group, int recBuffSize);

private:
    class tDatagramReceiverPrivate;
    tDatagramReceiverPrivate* d;
};
}  // namespace net

#endif
