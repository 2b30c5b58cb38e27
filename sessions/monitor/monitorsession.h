// tMonitorSession: listens to what a recorder would record, and records nothing.
#ifndef KESTOVA_SESSIONS_MONITOR_MONITORSESSION_H
#define KESTOVA_SESSIONS_MONITOR_MONITORSESSION_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "UdpSocket/transport.h"
#include "sessions/localaddress.h"
#include "sessions/monitor/arrivals.h"
#include "sessions/record/streamgroups.h"

namespace session
{
struct tMonitoredStream
{
    recordings::tStreamKey key;
    bool isShared = false;  // see tStreamGroup
    std::uint64_t datagrams = 0;
    std::uint64_t bytes = 0;
    std::uint64_t kernelDropped = 0;
    double datagramsPerSecond = 0.0;  // of the last three seconds
    double bytesPerSecond = 0.0;
    bool heard = false;
    std::uint64_t silentMs = 0;          // since the last datagram, or since the start
    std::uint64_t longestSilenceMs = 0;  // between two datagrams, or the present one
    std::optional<tJitter> jitter;
};

// One thread at a time. Datagrams are counted from construction on, on a thread a group.
class tMonitorSession
{
public:
    using tTime = std::chrono::steady_clock::time_point;

    // localIp 0: on the interface that the kernel chooses. A group that cannot be joined stays silent, see notJoined().
    tMonitorSession(const std::vector<tStreamGroup>& groups, std::uint32_t localIp);
    ~tMonitorSession();

    std::vector<NetAddress> notJoined() const;
    // Returns each stream; call it several times a second, since rates are taken from one call to another.
    std::vector<tMonitoredStream> update();

private:
    // The listener of one group.
    class tGroup : public net::iDatagramListener
    {
    public:
        explicit tGroup(const tStreamGroup& stream) : m_stream(stream) {}
        void OnDatagram(const net::tReceivedDatagram& datagram) override;
        void open(std::uint32_t localIp);
        void close() { m_source.reset(); }
        bool joined() const { return m_source->joined(); }
        const tStreamGroup& stream() const { return m_stream; }
        tMonitoredStream view(tTime now, tTime started) const;

    private:
        const tStreamGroup m_stream;
        mutable std::mutex m_mutex;
        tArrivals m_arrivals;  // guarded by m_mutex
        tTime m_last;          // guarded by m_mutex: the last arrival
        std::unique_ptr<net::iDatagramSource> m_source;
    };
    struct tSample
    {
        tTime time;
        std::uint64_t datagrams, bytes;
    };

    const tTime m_started = std::chrono::steady_clock::now();
    std::vector<std::unique_ptr<tGroup>> m_groups;
    std::map<recordings::tStreamKey, std::deque<tSample>> m_samples;  // of the last three seconds
};
}  // namespace session

#endif
