// tGroupSocket: the socket on a group and the thread that receives from it. Both kinds of receiver derive from it.
//
// Owner    created with new; destroy() frees it. From inside a call to the listener, destroy() defers that until the
//          call has returned. The listener outlives the socket, or the socket owns it.
// Threads  the receive thread calls the listener; everything else may be called from any thread.
// Errors   a group that cannot be joined is reported once through perror; valid() returns false then.
#ifndef KESTOVA_NET_GROUPSOCKET_H
#define KESTOVA_NET_GROUPSOCKET_H

#include <atomic>
#include <cstdint>
#include <memory>

#include "UdpSocket/datagramreceiver.h"
#include "UdpSocket/internal/dropcounter.h"
#include "UdpSocket/internal/pollthread.h"
#include "UdpSocket/internal/receivebatch.h"

namespace net
{
class KESTOVA_HIDDEN tGroupSocket
{
public:
    tGroupSocket(iDatagramListener* listener, std::uint32_t localIp, const NetAddress& group, int recBuffSize);
    tGroupSocket(std::unique_ptr<iDatagramListener> listener, std::uint32_t localIp, const NetAddress& group,
                 int recBuffSize);
    tGroupSocket(const tGroupSocket&) = delete;
    tGroupSocket& operator=(const tGroupSocket&) = delete;
    void destroy();

    bool valid() const { return m_valid; }
    int receiveBufferSize() const;
    tUdpReceiverCounters counters();

protected:
    virtual ~tGroupSocket() = default;  // m_thread goes first and joins

private:
    void start(std::uint32_t localIp);
    void receiveUntilStopped();
    void receiveBurst();
    void deliver(std::size_t received);
    void pauseAfterError();

    const std::unique_ptr<iDatagramListener> m_own;  // null if the application owns the listener
    iDatagramListener* const m_listener;
    const NetAddress m_group;
    tDescriptor m_socket;
    tReceiveBatch m_batch;       // receive thread
    bool m_deleteAtEnd = false;  // receive thread
    bool m_valid = false;        // never changed after construction
    std::atomic<std::uint64_t> m_datagrams{0};
    std::atomic<std::uint64_t> m_bytes{0};
    tDropCounter m_dropped;
    tPollThread m_thread;
};
}  // namespace net

#endif
