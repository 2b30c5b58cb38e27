#include "UdpSocket/internal/groupsocket.h"

#include <algorithm>
#include <cerrno>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <utility>

#include "UdpSocket/internal/udpaddress.h"

namespace net
{
namespace
{
// A radar sends its spokes in bursts: a full receive buffer is the first place that loses datagrams.
constexpr int cLeastReceiveBuffer = 4 * 1024 * 1024;

// SO_RCVBUFFORCE exceeds the system's limit and needs a privilege; SO_RCVBUF stops at the limit.
void requestReceiveBuffer(int socket, int size)
{
    if (!setOption(socket, SOL_SOCKET, SO_RCVBUFFORCE, size))
        setOption(socket, SOL_SOCKET, SO_RCVBUF, size);
}

bool join(int socket, std::uint32_t group, std::uint32_t localIp)
{
    ip_mreqn membership{};
    membership.imr_multiaddr.s_addr = group;
    membership.imr_address.s_addr = localIp;
    return setOption(socket, IPPROTO_IP, IP_ADD_MEMBERSHIP, membership);
}

// The bind to the group's own address keeps out other groups on the port. IP_MULTICAST_ALL off keeps out the same
// group's datagrams on other interfaces, which another socket of this machine may have joined there.
bool bindToGroup(int socket, std::uint32_t localIp, const NetAddress& group)
{
    if (group.port == 0)
    {
        errno = EINVAL;
        return false;
    }
    const int on = 1;
    const int off = 0;
    const sockaddr_in address = socketAddress(group.ip, group.port);
    if (!setOption(socket, SOL_SOCKET, SO_REUSEADDR, on) || !setOption(socket, IPPROTO_IP, IP_MULTICAST_ALL, off) ||
        ::bind(socket, asSockaddr(address), sizeof address) != 0)
        return false;
    return !isMulticast(group.ip) || join(socket, group.ip, localIp);
}

// Returns a socket on the group, or an invalid one with errno set.
tDescriptor openReceiveSocket(std::uint32_t localIp, const NetAddress& group, int recBuffSize)
{
    tDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket.valid())
        return socket;
    const int on = 1;
    requestReceiveBuffer(socket.get(), std::max(recBuffSize, cLeastReceiveBuffer));
    // Without them counters() still queries the count, and times of arrival are not known.
    setOption(socket.get(), SOL_SOCKET, SO_RXQ_OVFL, on);
    setOption(socket.get(), SOL_SOCKET, SO_TIMESTAMPNS, on);
    if (bindToGroup(socket.get(), localIp, group))
        return socket;
    const int reason = errno;
    socket.reset();
    errno = reason;
    return socket;
}

// For a counter with one writer: any thread may read it, and the addition costs no locked instruction.
void add(std::atomic<std::uint64_t>& counter, std::uint64_t by)
{
    counter.store(counter.load(std::memory_order_relaxed) + by, std::memory_order_relaxed);
}
}  // namespace

tGroupSocket::tGroupSocket(iDatagramListener* listener, const NetAddress& group) : m_listener(listener), m_group(group)
{}

tGroupSocket::tGroupSocket(std::unique_ptr<iDatagramListener> listener, const NetAddress& group)
    : m_own(std::move(listener)), m_listener(m_own.get()), m_group(group)
{}

bool tGroupSocket::open(std::uint32_t localIp, int recBuffSize)
{
    if (!m_batch.valid())
        return false;
    m_socket = openReceiveSocket(localIp, m_group, recBuffSize);
    return m_socket.valid();
}

bool tGroupSocket::receive()
{
    const int received = m_batch.receive(m_socket.get());
    m_next = 0;
    m_received = static_cast<std::size_t>(std::max(received, 0));
    look();
    return received > 0;
}

void tGroupSocket::look()
{
    if (!pending())
        return;
    m_report = m_batch.report(m_next);
    if (m_report.dropped)
        m_dropped.update(*m_report.dropped);
}

bool tGroupSocket::ended() const
{
    constexpr auto cNever = tClock::time_point::max().time_since_epoch().count();
    const auto end = m_end.load(std::memory_order_acquire);
    return end != cNever && tClock::now().time_since_epoch().count() >= end;
}

// Checks for the end before every call, so that no call follows it, whatever the size of the batch.
void tGroupSocket::deliverNext(std::int64_t arrived_ns)
{
    if (ended())
    {
        m_next = m_received = 0;
        return;
    }
    const sockaddr_in& sender = m_batch.sender(m_next);
    const int len = m_batch.length(m_next);
    m_listener->OnDatagram({{sender.sin_addr.s_addr, sender.sin_port},
                            m_group,
                            m_batch.data(m_next),
                            len,
                            static_cast<std::uint64_t>(arrived_ns / 1'000'000),
                            static_cast<std::uint64_t>(arrived_ns)});
    add(m_bytes, static_cast<std::uint64_t>(len));
    add(m_datagrams, 1);
    ++m_next;
    look();
}

int tGroupSocket::receiveBufferSize() const
{
    int size = 0;
    socklen_t width = sizeof size;
    if (!m_socket.valid() || ::getsockopt(m_socket.get(), SOL_SOCKET, SO_RCVBUF, &size, &width) != 0)
        return 0;
    return size / 2;  // the kernel doubles the requested size, for its own bookkeeping
}

tUdpReceiverCounters tGroupSocket::counters()
{
    // No datagram has reported the drops behind the last received one yet.
    std::uint32_t memory[SK_MEMINFO_VARS] = {};
    socklen_t width = sizeof memory;
    if (m_socket.valid() && ::getsockopt(m_socket.get(), SOL_SOCKET, SO_MEMINFO, memory, &width) == 0 &&
        width > SK_MEMINFO_DROPS * sizeof memory[0])
        m_dropped.update(memory[SK_MEMINFO_DROPS]);
    return {m_datagrams.load(std::memory_order_relaxed), m_bytes.load(std::memory_order_relaxed), m_dropped.total()};
}
}  // namespace net
