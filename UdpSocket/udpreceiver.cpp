#include "UdpSocket/udpsocket.h"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <linux/sock_diag.h>
#include <memory>
#include <netinet/in.h>
#include <sys/socket.h>

#include "UdpSocket/internal/dropcounter.h"
#include "UdpSocket/internal/pollthread.h"
#include "UdpSocket/internal/receivebatch.h"
#include "UdpSocket/internal/udpaddress.h"

namespace net
{
namespace
{
// A radar sends its spokes in bursts; what does not fit the receive buffer is what a recording loses first.
constexpr int cLeastReceiveBuffer = 4 * 1024 * 1024;

// Beyond the system's limit where this process may, up to the limit otherwise.
void askForReceiveBuffer(int socket, int size)
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

// Bound to the group's own address, other groups on the port stay out; without IP_MULTICAST_ALL so do the same group's
// datagrams on other interfaces, which another socket of this machine may have joined there.
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

// A socket on the group, or an invalid one with errno set.
tDescriptor openReceiveSocket(std::uint32_t localIp, const NetAddress& group, int recBuffSize)
{
    tDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket.valid())
        return socket;
    const int on = 1;
    askForReceiveBuffer(socket.get(), std::max(recBuffSize, cLeastReceiveBuffer));
    setOption(socket.get(), SOL_SOCKET, SO_RXQ_OVFL, on);  // without it counters() still asks
    if (bindToGroup(socket.get(), localIp, group))
        return socket;
    const int reason = errno;
    socket.reset();
    errno = reason;
    return socket;
}

// The sender's address as text, formatted once as long as the sender stays the same.
class tSenderText
{
public:
    const char* of(const in_addr& sender)
    {
        if (sender.s_addr != m_address.s_addr)
        {
            m_address = sender;
            ::inet_ntop(AF_INET, &m_address, m_text, sizeof m_text);
        }
        return m_text;
    }

private:
    in_addr m_address{};
    char m_text[INET_ADDRSTRLEN] = "0.0.0.0";
};

// A counter with one writer: any thread may read it, and raising it costs no locked instruction.
void raise(std::atomic<std::uint64_t>& counter, std::uint64_t by)
{
    counter.store(counter.load(std::memory_order_relaxed) + by, std::memory_order_relaxed);
}
}  // namespace

class KESTOVA_HIDDEN UdpReceiver::tUdpReceiverPrivate
{
public:
    tUdpReceiverPrivate(iUdpDataListener* listener, std::uint32_t localIp, const NetAddress& group, int recBuffSize)
        : m_listener(listener), m_groupText(transAddr(group.ip)), m_groupPort(NtoHs(group.port)),
          m_socket(openReceiveSocket(localIp, group, recBuffSize))
    {
        m_valid =
            m_socket.valid() && m_batch.valid() && m_thread.start("kestova-udp", [this] { receiveUntilStopped(); });
        if (m_valid)
            return;
        reportFailure("UdpReceiver: cannot receive", group, localIp);
        m_socket.reset();
    }

    // Ends and frees everything, on the receive thread itself as soon as the call that destroys has returned.
    void destroy()
    {
        if (m_thread.isSelf())
        {
            m_deleteAtEnd = true;
            m_thread.stop();
            return;
        }
        delete this;
    }

    bool valid() const { return m_valid; }
    int receiveBufferSize() const;
    tUdpReceiverCounters counters();

private:
    ~tUdpReceiverPrivate() = default;  // m_thread goes first and joins

    void receiveUntilStopped();
    void receiveBurst();
    void deliver(std::size_t received);
    void surviveError();

    iUdpDataListener* const m_listener;
    const std::string m_groupText;
    const int m_groupPort;
    tDescriptor m_socket;
    tReceiveBatch m_batch;       // receive thread
    tSenderText m_senderText;    // receive thread
    bool m_deleteAtEnd = false;  // receive thread
    bool m_valid = false;        // never changed after construction
    std::atomic<std::uint64_t> m_datagrams{0};
    std::atomic<std::uint64_t> m_bytes{0};
    tDropCounter m_dropped;
    tPollThread m_thread;
};

void UdpReceiver::tUdpReceiverPrivate::receiveUntilStopped()
{
    while (m_thread.wait(m_socket.get()) != tPollThread::eWake::eStopped)
        receiveBurst();
    if (m_deleteAtEnd)
        delete this;
}

// A full batch says that more is waiting: then there is no need to ask poll.
void UdpReceiver::tUdpReceiverPrivate::receiveBurst()
{
    int received = 0;
    do
    {
        received = m_batch.receive(m_socket.get());
        if (received < 0)
            return surviveError();
        deliver(static_cast<std::size_t>(received));
    } while (received == static_cast<int>(tReceiveBatch::cCapacity) && !m_thread.stopping());
}

// The stop is looked at before every call, so that none follows the destruction however much was received at once.
void UdpReceiver::tUdpReceiverPrivate::deliver(std::size_t received)
{
    for (std::size_t i = 0; i < received && !m_thread.stopping(); ++i)
    {
        if (const auto dropped = m_batch.droppedBefore(i))
            m_dropped.told(*dropped);
        const sockaddr_in& sender = m_batch.sender(i);
        const int len = m_batch.length(i);
        m_listener->OnUdpGroupDataReceived(m_senderText.of(sender.sin_addr), NtoHs(sender.sin_port),
                                           m_groupText.c_str(), m_groupPort, m_batch.data(i), len);
        raise(m_bytes, static_cast<std::uint64_t>(len));
        raise(m_datagrams, 1);
    }
}

// Nothing that the kernel reports about one datagram or one moment ends reception. An error that stays, such as a lack
// of memory, must not become a busy loop either.
void UdpReceiver::tUdpReceiverPrivate::surviveError()
{
    constexpr int cPause_ms = 5;
    const bool passing = errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
    if (!passing)
        m_thread.wait(-1, cPause_ms);
}

int UdpReceiver::tUdpReceiverPrivate::receiveBufferSize() const
{
    int size = 0;
    socklen_t width = sizeof size;
    if (!m_valid || ::getsockopt(m_socket.get(), SOL_SOCKET, SO_RCVBUF, &size, &width) != 0)
        return 0;
    return size / 2;  // the kernel doubles what it is asked for, for its own bookkeeping
}

tUdpReceiverCounters UdpReceiver::tUdpReceiverPrivate::counters()
{
    // Drops behind the last received datagram are told by no datagram yet.
    std::uint32_t memory[SK_MEMINFO_VARS] = {};
    socklen_t width = sizeof memory;
    if (m_valid && ::getsockopt(m_socket.get(), SOL_SOCKET, SO_MEMINFO, memory, &width) == 0 &&
        width > SK_MEMINFO_DROPS * sizeof memory[0])
        m_dropped.told(memory[SK_MEMINFO_DROPS]);
    return {m_datagrams.load(std::memory_order_relaxed), m_bytes.load(std::memory_order_relaxed), m_dropped.total()};
}

UdpReceiver::UdpReceiver(iUdpDataListener* listener, uint32_t localIp, const NetAddress& group, int recBuffSize)
    : d(new tUdpReceiverPrivate(listener, localIp, group, recBuffSize))
{}

UdpReceiver::~UdpReceiver()
{
    d->destroy();
}

bool UdpReceiver::valid() const
{
    return d->valid();
}

int UdpReceiver::receiveBufferSize() const
{
    return d->receiveBufferSize();
}

tUdpReceiverCounters UdpReceiver::counters() const
{
    return d->counters();
}
}  // namespace net
