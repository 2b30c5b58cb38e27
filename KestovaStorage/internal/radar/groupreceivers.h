// tGroupReceivers: the groups a recorder has joined, one source of datagrams a group, on threads of their own or on
// one.
//
// Shapes   the table of groups is built whole and in place before the first source opens, and cleared after the last
//          one has ended, so that every datagram finds its row.
// Owner    owns the sources; listener and transport outlive it.
// Threads  open() and close() one at a time, never from inside a callback of the listener: they wait for it. find() and
//          states() from any thread, inside a callback too. The lock is never held while a source is opened or
//          destroyed. (Copying a row out under the lock costs half of what handing out a share of the table does.)
// Errors   a group that cannot be joined keeps its row and states() shows it; the error is reported on standard error.
#ifndef KESTOVA_STORAGE_RADAR_GROUPRECEIVERS_H
#define KESTOVA_STORAGE_RADAR_GROUPRECEIVERS_H

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "KestovaStorage/internal/radar/radarstreams.h"
#include "UdpSocket/transport.h"

namespace Kestova
{
struct tGroupState
{
    tRadarGroup group;
    bool joined;
    net::tUdpReceiverCounters counters;
};

// What a recorder needs of a group at every datagram.
struct tGroupRow
{
    tUdpMsgInfo msgInfo;
    std::array<char, 16> text;  // the group's address, dotted
};

class tGroupReceivers
{
public:
    explicit tGroupReceivers(net::iDatagramListener* listener, net::iTransport& transport = net::defaultTransport())
        : m_listener(listener), m_transport(transport)
    {}
    ~tGroupReceivers() { close(); }
    tGroupReceivers(const tGroupReceivers&) = delete;
    tGroupReceivers& operator=(const tGroupReceivers&) = delete;

    // Whether groups can be joined with this local address: UDP would join on any interface if it were 0.
    bool canOpen(std::uint32_t localIp) const { return localIp != 0 || !m_transport.needsLocalAddress(); }
    // Joins `groups`, each address once in it, on the interface with this address; with `shared` on one thread. What
    // was open is closed first.
    void open(const std::vector<tRadarGroup>& groups, std::uint32_t localIp, bool shared = false);
    // Leaves all groups; returns whether there were any. No call to the listener is under way afterwards.
    bool close();

    // Copies the row of a joined group; returns false for any other address.
    bool find(const NetAddress& address, tGroupRow& row) const;
    // Returns every joined group, in the order of open(); none while they are being joined or left.
    std::vector<tGroupState> states() const;

private:
    using tSources = std::vector<std::unique_ptr<net::iDatagramSource>>;
    struct tGroupTable
    {
        std::vector<tRadarGroup> groups;
        std::vector<tGroupRow> rows;  // one a group
    };
    tSources sharedSources(const std::vector<tRadarGroup>& groups, std::uint32_t localIp) const;
    std::unique_ptr<net::iDatagramSource> sourceOf(const tRadarGroup& group, std::uint32_t localIp) const;

    net::iDatagramListener* const m_listener;
    net::iTransport& m_transport;
    mutable std::mutex m_mutex;
    tGroupTable m_table;  // guarded by m_mutex
    tSources m_sources;   // guarded by m_mutex; one a group, null if it could not be opened
};
}  // namespace Kestova

#endif
