// tLiveFeed: the datagrams of a group, as the packages that a recorder would make of them.
//
// Threads  datagrams come on a thread of their own; next() belongs to one thread at a time.
#ifndef KESTOVA_C_LIVEFEED_H
#define KESTOVA_C_LIVEFEED_H

#include <atomic>
#include <deque>
#include <string>

#include "UdpSocket/transport.h"
#include "bindings/c/feed.h"

namespace binding
{
// Holds 64 MiB of datagrams; while it is full new ones are counted as damaged.
class tLiveFeed final : public iFeed, private net::iDatagramListener
{
public:
    explicit tLiveFeed(const tSource& source);

    kestova_result next(tMessages& messages, std::size_t most, const tDeadline& deadline) override;
    std::uint64_t damaged() const override { return m_dropped; }

private:
    struct tWaiting
    {
        std::uint64_t timeMs;
        std::string bytes;
    };
    void OnDatagram(const net::tReceivedDatagram& datagram) override;

    const tSource::tLive m_live;
    const std::shared_ptr<tStop> m_stop;
    std::deque<tWaiting> m_queue;   // guarded by m_stop->m_mutex
    std::size_t m_queuedBytes = 0;  // guarded by m_stop->m_mutex
    std::atomic<std::uint64_t> m_dropped{0};
    std::uint32_t m_sequence = 0;
    std::vector<tWaiting> m_present;
    std::unique_ptr<net::iDatagramSource> m_source;  // last: its thread uses the members above
};
}  // namespace binding

#endif
