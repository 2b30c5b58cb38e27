// tGroupReceivers: the groups a recorder has joined, one receiver a group.
//
// Shapes   the table of groups is built whole and in place before the first receiver starts, so that every datagram
//          finds its row; receivers end before the table goes, so that none that was received is turned away.
// Owner    owns the receivers; the listener outlives it.
// Threads  open() and close() one at a time, never from inside a callback of the listener: they wait for it. find()
//          and states() from any thread, inside a callback too. The lock is held for moments only, never while a
//          receiver is made or destroyed. (Copying the 5 bytes of a row out under the lock costs half of what handing
//          out a share of the table does.)
// Errors   a group that cannot be joined keeps its row and is told by states(); why is said on standard error.
#ifndef KESTOVA_STORAGE_RADAR_GROUPRECEIVERS_H
#define KESTOVA_STORAGE_RADAR_GROUPRECEIVERS_H

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "KestovaStorage/internal/radar/radarstreams.h"
#include "UdpSocket/udpsocket.h"

namespace Kestova
{
struct tGroupState
{
    tRadarGroup group;
    bool joined;
    net::tUdpReceiverCounters counters;
};

class tGroupReceivers
{
public:
    explicit tGroupReceivers(net::iUdpDataListener* listener) : m_listener(listener) {}
    ~tGroupReceivers() { close(); }
    tGroupReceivers(const tGroupReceivers&) = delete;
    tGroupReceivers& operator=(const tGroupReceivers&) = delete;

    // Joins `groups`, each address once in it, on the interface with this address. What was open is closed first.
    void open(const std::vector<tRadarGroup>& groups, std::uint32_t localIp);
    // Leaves all groups; whether there were any. No call to the listener is under way afterwards.
    bool close();

    // The info block of a joined group; false for an address that is none.
    bool find(const NetAddress& address, tUdpMsgInfo& msgInfo) const;
    // Every joined group, in the order of open(); none while they are being joined or left.
    std::vector<tGroupState> states() const;

private:
    using tReceivers = std::vector<std::unique_ptr<net::UdpReceiver>>;
    std::unique_ptr<net::UdpReceiver> receiverOf(const tRadarGroup& group, std::uint32_t localIp) const;

    net::iUdpDataListener* const m_listener;
    mutable std::mutex m_mutex;
    std::vector<tRadarGroup> m_recSockInfo;  // guarded by m_mutex
    tReceivers m_receivers;                  // guarded by m_mutex; one a group, null where it could not be made
};
}  // namespace Kestova

#endif
