#include "UdpSocket/udpsocket.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <netinet/in.h>
#include <sys/socket.h>

#include "UdpSocket/internal/udpaddress.h"
#include "common/descriptor.h"

namespace net
{
namespace
{
constexpr std::size_t cBatch = 64;

// Sends multicast on the interface that has `localIp`, to the local network only.
bool aimMulticast(int socket, std::uint32_t localIp)
{
    const int ttl = 1;
    ip_mreqn interface {};
    interface.imr_address.s_addr = localIp;
    return setOption(socket, IPPROTO_IP, IP_MULTICAST_TTL, ttl) &&
           (localIp == 0 || setOption(socket, IPPROTO_IP, IP_MULTICAST_IF, interface));
}

// SO_REUSEADDR: a receiver of a group may be bound to the same port.
bool bindSource(int socket, std::uint32_t localIp, int localPort)
{
    if (localPort < 0 || localPort > 65535)
    {
        errno = EINVAL;
        return false;
    }
    if (localIp == 0 && localPort == 0)
        return true;
    const int on = 1;
    const sockaddr_in source = socketAddress(localIp, HtoNs(static_cast<std::uint16_t>(localPort)));
    return (localPort == 0 || setOption(socket, SOL_SOCKET, SO_REUSEADDR, on)) &&
           ::bind(socket, asSockaddr(source), sizeof source) == 0;
}

// The socket stays unconnected: on a connected one, "connection refused" for one datagram fails the next send.
tDescriptor openSendSocket(std::uint32_t localIp, int localPort)
{
    tDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socket.valid())
        return socket;
    const int on = 1;
    const int least = 1;
    setOption(socket.get(), SOL_SOCKET, SO_BROADCAST, on);  // some sensors use a broadcast address
    setOption(socket.get(), SOL_SOCKET, SO_RCVBUF, least);  // this socket is never read
    if (aimMulticast(socket.get(), localIp) && bindSource(socket.get(), localIp, localPort))
        return socket;
    const int reason = errno;
    socket.reset();
    errno = reason;
    return socket;
}

bool isSendable(const tUdpDatagram& datagram)
{
    return datagram.len == 0 || (datagram.len > 0 && datagram.data != nullptr);
}

iovec bytesOf(const tUdpDatagram& datagram)
{
    return {const_cast<char*>(datagram.data), static_cast<std::size_t>(datagram.len)};  // sendmsg does not write there
}
}  // namespace

class KESTOVA_HIDDEN UdpSender::tUdpSenderPrivate
{
public:
    tUdpSenderPrivate(const NetAddress& destination, std::uint32_t localIp, int localPort)
        : m_to(destination), m_localIp(localIp), m_destination(socketAddress(destination.ip, destination.port)),
          m_socket(openSendSocket(localIp, localPort))
    {
        if (!m_socket.valid())
            reportOnce("UdpSender: cannot open a socket for");
    }

    bool send(const tUdpDatagram& datagram);
    int sendSome(const tUdpDatagram* datagrams, std::size_t count);
    void setMulticastLoop(bool on);

private:
    bool fail(int reason)
    {
        errno = reason;
        reportOnce("UdpSender: cannot send to");
        errno = reason;
        return false;
    }
    void reportOnce(const char* what)
    {
        if (!m_reported.exchange(true))
            reportFailure(what, m_to, m_localIp);
    }

    const NetAddress m_to;
    const std::uint32_t m_localIp;
    sockaddr_in m_destination;  // never changed after construction
    const tDescriptor m_socket;
    std::atomic<bool> m_reported{false};
};

bool UdpSender::tUdpSenderPrivate::send(const tUdpDatagram& datagram)
{
    if (!isSendable(datagram))
        return fail(EINVAL);
    for (;;)
    {
        const iovec bytes = bytesOf(datagram);
        if (::sendto(m_socket.get(), bytes.iov_base, bytes.iov_len, MSG_NOSIGNAL, asSockaddr(m_destination),
                     sizeof m_destination) >= 0)
            return true;
        if (errno != EINTR)
            return fail(errno);
    }
}

// Sends up to cBatch of the datagrams. Returns how many went out: 0 if the first one fails.
int UdpSender::tUdpSenderPrivate::sendSome(const tUdpDatagram* datagrams, std::size_t count)
{
    std::array<iovec, cBatch> bytes;
    std::array<mmsghdr, cBatch> messages;
    std::size_t ready = 0;
    for (; ready < std::min(count, cBatch) && isSendable(datagrams[ready]); ++ready)
    {
        bytes[ready] = bytesOf(datagrams[ready]);
        messages[ready] = {};
        messages[ready].msg_hdr.msg_name = &m_destination;
        messages[ready].msg_hdr.msg_namelen = sizeof m_destination;
        messages[ready].msg_hdr.msg_iov = &bytes[ready];
        messages[ready].msg_hdr.msg_iovlen = 1;
    }
    if (ready > 1)
    {
        const int sent = ::sendmmsg(m_socket.get(), messages.data(), static_cast<unsigned int>(ready), MSG_NOSIGNAL);
        if (sent > 0)
            return sent;
    }
    return send(datagrams[0]) ? 1 : 0;  // a single one, or one that failed: send() reports it
}

void UdpSender::tUdpSenderPrivate::setMulticastLoop(bool on)
{
    const int loop = on ? 1 : 0;
    if (m_socket.valid() && !setOption(m_socket.get(), IPPROTO_IP, IP_MULTICAST_LOOP, loop))
        reportOnce("UdpSender: cannot set the multicast loop of");
}

UdpSender::UdpSender(const NetAddress& destination, uint32_t localIp, int localPort)
    : d(new tUdpSenderPrivate(destination, localIp, localPort))
{}

UdpSender::~UdpSender()
{
    delete d;
}

bool UdpSender::sendData(const char* data, int len)
{
    return d->send({data, len});
}

int UdpSender::sendBatch(const tUdpDatagram* datagrams, int count)
{
    int sent = 0;
    for (int next = 0; next < count;)
    {
        const int some = d->sendSome(datagrams + next, static_cast<std::size_t>(count - next));
        sent += some;
        next += std::max(some, 1);  // skips one that failed
    }
    return sent;
}

void UdpSender::setMulticastLoop(bool on)
{
    d->setMulticastLoop(on);
}
}  // namespace net
