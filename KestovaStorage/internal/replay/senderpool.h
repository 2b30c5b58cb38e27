// tSenderPool: the sinks through which a replay reaches the network, one for each destination, opened at first use.
//
// Shapes   at most cMaxSenders at a time: the least recently used one is closed for a new one, which is reported once.
//          A recording can name any number of destinations; this process has a limit of descriptors.
// Threads  any. The lock is never held while sending; a sender that leaves the table while another thread sends through
//          it ends after that.
// Errors   a sink that cannot be opened, and the first datagram that it refuses, are reported by the sink.
#ifndef KESTOVA_STORAGE_REPLAY_SENDERPOOL_H
#define KESTOVA_STORAGE_REPLAY_SENDERPOOL_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "KestovaStorage/internal/radar/transport.h"

namespace Kestova
{
class tSenderPool
{
public:
    static constexpr std::size_t cMaxSenders = 256;

    explicit tSenderPool(std::uint32_t localIp, iTransport& transport = defaultTransport())
        : m_localIp(localIp), m_transport(transport)
    {}

    // Sends `len` bytes to `address`; displays on this machine receive them too. Returns whether they were sent.
    bool send(const NetAddress& address, const char* data, int len);
    std::size_t size() const;
    void clear();

private:
    using tSender = std::shared_ptr<iDatagramSink>;
    struct tRow
    {
        tSender sender;
        std::uint64_t lastUse;
    };

    tSender senderOf(const NetAddress& address);
    void makeRoom();

    const std::uint32_t m_localIp;
    iTransport& m_transport;
    mutable std::mutex m_mutex;
    std::map<NetAddress, tRow, tNetAddress_less> m_sendSockInfo;  // guarded by m_mutex
    std::uint64_t m_uses = 0;                                     // guarded by m_mutex
    bool m_limitReported = false;                                 // guarded by m_mutex
};
}  // namespace Kestova

#endif
