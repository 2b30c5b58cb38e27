// UDP multicast for Linux: one receiver a group, one sender a destination.
//
// Addresses are numbers as they lie in memory in network order (in_addr.s_addr), so that a field of an IP header
// converts as it stands. Nothing here throws but std::bad_alloc in a constructor; failures are reported once on
// standard error. All operations may be called from any thread.
#ifndef KESTOVA_UDPSOCKET_H
#define KESTOVA_UDPSOCKET_H

#include <stdint.h>
#include <string>

#include "UdpSocket/kestovaapi.h"
#include "UdpSocket/netaddress.h"

namespace net
{
// Dotted text to address: "127.0.0.1" gives the four bytes 7F 00 00 01 in memory. 0 for text that is no IPv4 address
// (and for "0.0.0.0"); null gives 0. Any thread.
KESTOVA_API uint32_t transAddr(const char* dotted);
// Address to dotted text. Any thread.
KESTOVA_API std::string transAddr(uint32_t ip);
// "239.17.0.1:6001" to address and port. ip is 0 if what stands before the first ":" is no IPv4 address, port is 0 if
// what follows is no decimal number from 1 to 65535. Any thread.
KESTOVA_API NetAddress parseAddress(const std::string& text);
// Host to network byte order of a port, and back.
KESTOVA_API uint16_t HtoNs(uint16_t port);
KESTOVA_API uint16_t NtoHs(uint16_t port);

// Receives datagrams.
class KESTOVA_API iUdpDataListener
{
public:
    virtual ~iUdpDataListener() = default;
    // One datagram. Called on the receiver's own thread, one call at a time for one receiver; receivers of different
    // groups call at the same time. fromAddr and groupAddr are dotted texts, the ports plain numbers; data holds len
    // bytes (0 for an empty datagram), may be changed in place and is valid during the call only. Must not throw.
    virtual void OnUdpGroupDataReceived(const char* fromAddr, int fromPort, const char* groupAddr, int groupPort,
                                        const char* data, int len) = 0;
};

// What a receiver has seen since its construction.
struct tUdpReceiverCounters
{
    uint64_t datagrams;      // delivered to the listener
    uint64_t bytes;          // of their payloads
    uint64_t kernelDropped;  // discarded by the kernel, mostly because the receive buffer was full; exact at any time
};

// Receives one group on one interface, on a thread of its own.
class KESTOVA_API UdpReceiver
{
public:
    // Joins `group` on the interface whose address is `localIp` (0: the kernel chooses) and starts receiving; the first
    // call to the listener may come before the constructor returns. Other groups on the same port stay out, and so
    // does the same group on other interfaces. A unicast address in `group` is bound instead of joined. Datagrams of
    // any size arrive whole. `recBuffSize` is the least size in bytes of the socket's receive buffer; at least 4 MiB
    // are asked for. A group that cannot be joined is reported once through perror, with group, interface and reason;
    // the receiver then stays silent and valid() is false. The listener is not owned and must outlive the receiver.
    UdpReceiver(iUdpDataListener* listener, uint32_t localIp, const NetAddress& group, int recBuffSize);
    // Returns as soon as a call to the listener that is under way has ended, within milliseconds otherwise; no call
    // follows. From inside the receiver's own callback it returns at once, and that call is the last.
    ~UdpReceiver();
    UdpReceiver(const UdpReceiver&) = delete;
    UdpReceiver& operator=(const UdpReceiver&) = delete;

    bool valid() const;                     // the group is joined
    tUdpReceiverCounters counters() const;  // since construction
    // What the kernel granted for the receive buffer, in bytes; less than asked for if this process may not exceed
    // net.core.rmem_max. 0 if the group is not joined.
    int receiveBufferSize() const;

private:
    class tUdpReceiverPrivate;
    tUdpReceiverPrivate* d;
};

// One datagram to send: `len` bytes at `data`.
struct tUdpDatagram
{
    const char* data;
    int len;
};

// Sends datagrams to one destination. Any number of threads at the same time: a datagram is sent whole.
class KESTOVA_API UdpSender
{
public:
    // `localIp` chooses the interface for multicast and the source address (0: the kernel chooses); `localPort` is a
    // plain number, 0 for any. Multicast TTL is 1. A socket that cannot be made is reported once through perror; every
    // send is then refused.
    UdpSender(const NetAddress& destination, uint32_t localIp, int localPort);
    ~UdpSender();
    UdpSender(const UdpSender&) = delete;
    UdpSender& operator=(const UdpSender&) = delete;

    // Sends one datagram of `len` bytes. False if the kernel refused it; the first refusal is reported through perror.
    bool sendData(const char* data, int len);
    // Sends `count` datagrams in order, with one system call for up to 64 of them: for sources of many thousand a
    // second. A refused one is left out, and reported as by sendData. The number sent.
    int sendBatch(const tUdpDatagram* datagrams, int count);
    // Whether receivers on this machine get multicast sent here; they do by default.
    void setMulticastLoop(bool on);

private:
    class tUdpSenderPrivate;
    tUdpSenderPrivate* d;
};
}  // namespace net

#endif
