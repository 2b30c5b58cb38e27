// tGroupSocket: the socket on a group, its listener and its counters. A tReceiveLoop receives from it.
//
// Owner    owns the listener only if it was given it as a unique_ptr; otherwise the listener outlives the socket.
// Threads  open() comes first. receive() and deliverNext() belong to the loop; everything else to any thread.
#ifndef KESTOVA_NET_GROUPSOCKET_H
#define KESTOVA_NET_GROUPSOCKET_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>

#include "UdpSocket/datagramreceiver.h"
#include "UdpSocket/internal/dropcounter.h"
#include "UdpSocket/internal/receivebatch.h"
#include "common/descriptor.h"

namespace net
{
class KESTOVA_HIDDEN tGroupSocket
{
public:
    using tClock = std::chrono::steady_clock;

    tGroupSocket(iDatagramListener* listener, const NetAddress& group);
    tGroupSocket(std::unique_ptr<iDatagramListener> listener, const NetAddress& group);
    tGroupSocket(const tGroupSocket&) = delete;
    tGroupSocket& operator=(const tGroupSocket&) = delete;

    // Joins the group. Returns false, with errno set, if that fails.
    bool open(std::uint32_t localIp, int recBuffSize);
    void close() { m_socket.reset(); }
    int descriptor() const { return m_socket.get(); }
    const NetAddress& group() const { return m_group; }
    int receiveBufferSize() const;
    tUdpReceiverCounters counters();

    // Ends the calls to the listener at this time, whatever waits to be delivered. Any thread, once.
    void endAt(tClock::time_point time) { m_end.store(time.time_since_epoch().count(), std::memory_order_release); }
    void end() { m_end.store(0, std::memory_order_release); }
    bool ended() const;

    // Receives the datagrams that wait, up to a batch. Returns false, with errno set, if there are none or that fails.
    bool receive();
    bool pending() const { return m_next < m_received; }  // datagrams were received and are not yet delivered
    // The kernel may have more of what had arrived when the present pass began: the last batch was full, or is left
    // from a former pass.
    bool mayHaveMore() const { return m_received == tReceiveBatch::cCapacity || m_left; }
    void keep() { m_left = true; }                                       // what is pending for the next pass
    std::int64_t nextArrived_ns() const { return m_report.arrived_ns; }  // of the next one; requires pending()
    // Calls the listener with the next one, as if it had arrived then; requires pending().
    void deliverNext(std::int64_t arrived_ns);

    bool active = false;  // the loop's mark
    bool fresh = false;   // the loop's mark: receive() was called in this pass

private:
    void look();

    const std::unique_ptr<iDatagramListener> m_own;  // null if the application owns the listener
    iDatagramListener* const m_listener;
    const NetAddress m_group;
    tDescriptor m_socket;
    tReceiveBatch m_batch;            // the loop's, as the next four
    tReceiveBatch::tReport m_report;  // of the next datagram
    std::size_t m_next = 0;
    std::size_t m_received = 0;
    bool m_left = false;  // the last batch is of a former pass
    std::atomic<tClock::rep> m_end{tClock::time_point::max().time_since_epoch().count()};
    std::atomic<std::uint64_t> m_datagrams{0};
    std::atomic<std::uint64_t> m_bytes{0};
    tDropCounter m_dropped;
};
}  // namespace net

#endif
