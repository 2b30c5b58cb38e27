// UDP multicast for Linux: one receiver a group, one sender a destination.
//
// Addresses are numbers in network byte order (in_addr.s_addr), like the fields of an IP header. Nothing here throws
// but std::bad_alloc in a constructor; failures are reported once on standard error. All operations may be called from
// any thread.
#ifndef KESTOVA_UDPSOCKET_H
#define KESTOVA_UDPSOCKET_H

#include <stdint.h>
#include <string>

#include "UdpSocket/kestovaapi.h"
#include "UdpSocket/netaddress.h"

namespace net
{
// Returns the address of a dotted text: for "127.0.0.1" the four bytes 7F 00 00 01 in memory. Returns 0 for text that
// is no IPv4 address (and for "0.0.0.0"), and for null. Any thread.
KESTOVA_API uint32_t transAddr(const char* dotted);
// Returns the dotted text of an address. Any thread.
KESTOVA_API std::string transAddr(uint32_t ip);
// Returns address and port of a text such as "239.17.0.1:6001". ip is 0 if the text before the first ":" is no IPv4
// address, port is 0 if the text after it is no decimal number from 1 to 65535. Any thread.
KESTOVA_API NetAddress parseAddress(const std::string& text);
// Returns the local address from which the kernel would send to `destination`, as transAddr returns it; on the
// interface of that address it joins a group when none is given. Returns 0, with the reason in errno, if there is no
// route. Sends nothing. Any thread.
KESTOVA_API uint32_t routeAddress(const NetAddress& destination);
// Return a port in network byte order, and back in host byte order.
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
    // call to the listener may come before the constructor returns. Receives neither other groups on the same port nor
    // the same group on other interfaces. A unicast address in `group` is bound instead of joined. Datagrams of any
    // size arrive whole. `recBuffSize` is the least size in bytes of the socket's receive buffer; requests 4 MiB at
    // least. A group that cannot be joined is reported once through perror, with group, interface and reason; the
    // receiver then receives nothing and valid() returns false. The listener is not owned and outlives the receiver.
    UdpReceiver(iUdpDataListener* listener, uint32_t localIp, const NetAddress& group, int recBuffSize);
    // Waits for a call to the listener that is under way; otherwise returns within milliseconds. No call follows. From
    // inside the receiver's own callback it returns at once, and that call is the last.
    ~UdpReceiver();
    UdpReceiver(const UdpReceiver&) = delete;
    UdpReceiver& operator=(const UdpReceiver&) = delete;

    bool valid() const;                     // the group is joined
    tUdpReceiverCounters counters() const;  // since construction
    // Returns the size of the receive buffer that the kernel granted, in bytes: less than requested if this process may
    // not exceed net.core.rmem_max, 0 if the group is not joined.
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

// Sends datagrams to one destination, each of them whole. Any number of threads at the same time.
class KESTOVA_API UdpSender
{
public:
    // `localIp` chooses the interface for multicast and the source address (0: the kernel chooses); `localPort` is a
    // plain number, 0 for any. Multicast TTL is 1. A socket that cannot be opened is reported once through perror;
    // every send then fails.
    UdpSender(const NetAddress& destination, uint32_t localIp, int localPort);
    ~UdpSender();
    UdpSender(const UdpSender&) = delete;
    UdpSender& operator=(const UdpSender&) = delete;

    // Sends one datagram of `len` bytes. Returns false if that fails, with the reason in errno; the first failure is
    // reported through perror.
    bool sendData(const char* data, int len);
    // Sends `count` datagrams in order, with one system call for up to 64 of them: for sources of many thousand a
    // second. Skips one that fails, and reports it as sendData does. Returns the number sent.
    int sendBatch(const tUdpDatagram* datagrams, int count);
    // Sets whether receivers on this machine get multicast sent here; they do by default.
    void setMulticastLoop(bool on);

private:
    class tUdpSenderPrivate;
    tUdpSenderPrivate* d;
};
}  // namespace net

#endif
