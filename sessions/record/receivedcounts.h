// tReceivedCounts: counts what the receive threads of several groups receive, without a lock.
#ifndef KESTOVA_SESSIONS_RECORD_RECEIVEDCOUNTS_H
#define KESTOVA_SESSIONS_RECORD_RECEIVEDCOUNTS_H

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "KestovaRecordings/streamcounts.h"
#include "UdpSocket/netaddress.h"

namespace session
{
// The count of one group. add() belongs to the thread that receives the group; now() to any thread. While datagrams
// come, the values that now() returns may be one datagram apart.
class alignas(64) tReceivedCount  // on a cache line of its own
{
public:
    void add(const char* data, int len);
    recordings::tStreamCount now() const;

private:
    std::atomic<std::uint64_t> m_messages{0};
    std::atomic<std::uint64_t> m_bytes{0};
    std::atomic<std::uint64_t> m_hash{recordings::tDigest().hash};
};

// expect() comes before the first datagram; everything else may be called from any thread.
class tReceivedCounts
{
public:
    // Sets the stream of a group; keeps the first of two streams on one group. The count stays in place.
    tReceivedCount& expect(const NetAddress& group, tReadWriteType kind);

    // Returns the count of an expected group, `dotted` its address and `port` a plain number; null for any other.
    tReceivedCount* find(const char* dotted, int port) const;
    recordings::tStreamCounts table() const;
    recordings::tStreamKey keyOf(const NetAddress& group) const;  // of the kind otherType for an unexpected group

private:
    struct tGroup
    {
        NetAddress address;
        std::string dotted;
        int port;
        tReadWriteType kind;
        std::unique_ptr<tReceivedCount> count;
    };
    const tGroup* groupAt(const NetAddress& address) const;

    std::vector<tGroup> m_groups;
};
}  // namespace session

#endif
