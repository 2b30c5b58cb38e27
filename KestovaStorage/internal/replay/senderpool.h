// tSenderPool: the sockets through which a replay reaches the network, one for each destination, made at first use.
//
// Shapes   at most cMaxSenders at a time: the one that was not used for longest makes room, said once. A recording
//          can name any number of destinations; this process has a limit of descriptors.
// Threads  any. The lock is held for moments only, never while sending; a sender that leaves the table while another
//          thread sends through it ends after that.
// Errors   a socket that cannot be made, and the first datagram it refuses, are reported by the sender itself.
#ifndef KESTOVA_STORAGE_REPLAY_SENDERPOOL_H
#define KESTOVA_STORAGE_REPLAY_SENDERPOOL_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "UdpSocket/udpsocket.h"

namespace Kestova
{
class tSenderPool
{
public:
    static constexpr std::size_t cMaxSenders = 256;

    explicit tSenderPool(std::uint32_t localIp) : m_localIp(localIp) {}

    // Sends `len` bytes to `address` with multicast loopback on, so that displays on this machine hear them too.
    // Whether they went out.
    bool send(const NetAddress& address, const char* data, int len);
    std::size_t size() const;
    void clear();

private:
    using tSender = std::shared_ptr<net::UdpSender>;
    struct tRow
    {
        tSender sender;
        std::uint64_t lastUse;
    };

    tSender senderOf(const NetAddress& address);
    void makeRoom();

    const std::uint32_t m_localIp;
    mutable std::mutex m_mutex;
    std::map<NetAddress, tRow, tNetAddress_less> m_sendSockInfo;  // guarded by m_mutex
    std::uint64_t m_uses = 0;                                     // guarded by m_mutex
    bool m_toldFull = false;                                      // guarded by m_mutex
};
}  // namespace Kestova

#endif
