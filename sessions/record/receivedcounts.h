// tReceivedCounts: counts datagrams on the receive threads of several groups at once.
#ifndef KESTOVA_SESSIONS_RECORD_RECEIVEDCOUNTS_H
#define KESTOVA_SESSIONS_RECORD_RECEIVEDCOUNTS_H

#include <map>
#include <mutex>

#include "KestovaRecordings/streamcounts.h"
#include "UdpSocket/netaddress.h"

namespace session
{
// Any thread.
class tReceivedCounts
{
public:
    // Sets the stream of a group; keeps the first of two streams on one group.
    void expect(const NetAddress& group, tReadWriteType kind);
    void add(const NetAddress& group, const char* data, int len);

    recordings::tStreamCounts table() const;
    recordings::tStreamKey keyOf(const NetAddress& group) const;  // of the kind otherType for an unexpected group

private:
    mutable std::mutex m_mutex;
    std::map<NetAddress, tReadWriteType, tNetAddress_less> m_kinds;  // guarded by m_mutex
    recordings::tStreamCounts m_table;                               // guarded by m_mutex
};
}  // namespace session

#endif
