// tGroupReceiver: one group being received, from construction to destruction, on a loop of its own or a shared one.
//
// Threads  any; see tReceiveLoop::remove() for destruction.
// Errors   a group that cannot be received is reported once through perror; valid() returns false then.
#ifndef KESTOVA_NET_GROUPRECEIVER_H
#define KESTOVA_NET_GROUPRECEIVER_H

#include <cstdint>
#include <memory>

#include "UdpSocket/internal/receiveloop.h"

namespace net
{
class KESTOVA_HIDDEN tGroupReceiver
{
public:
    tGroupReceiver(std::unique_ptr<tGroupSocket> socket, std::shared_ptr<tReceiveLoop> loop, std::uint32_t localIp,
                   int recBuffSize);
    ~tGroupReceiver();
    tGroupReceiver(const tGroupReceiver&) = delete;
    tGroupReceiver& operator=(const tGroupReceiver&) = delete;

    bool valid() const { return m_valid; }
    int receiveBufferSize() const { return m_socket->receiveBufferSize(); }
    tUdpReceiverCounters counters() const { return m_socket->counters(); }

private:
    std::unique_ptr<tGroupSocket> m_socket;
    const std::shared_ptr<tReceiveLoop> m_loop;
    bool m_valid = false;  // never changed after construction
};
}  // namespace net

#endif
