// The multicast groups that all radars of a network share, beside the groups of their own streams.
#ifndef KESTOVA_SERVICEGROUPS_H
#define KESTOVA_SERVICEGROUPS_H

#include <stdint.h>

#include "KestovaStorage/radarmsgpackage.h"
#include "UdpSocket/netaddress.h"
#include "UdpSocket/udpsocket.h"

// Indexes of cServiceGroups, in the order in which a recorder joins them.
enum eServiceGroup : uint8_t
{
    eRadarCheckGroup = 0,         // radar check
    eRadarNegotiationGroup = 1,   // multi-radar negotiation
    eMultiRadarServiceGroup = 2,  // multi-radar service: its datagrams show that it is alive, queries are sent there
    eTotalServiceGroups = 3       // count of the groups above, not a group
};

// A group and the info block that a recorder stamps on its packages.
struct tServiceGroup
{
    const char* group;  // dotted
    uint16_t port;      // plain number
    tUdpMsgInfo msgInfo;
};

constexpr tServiceGroup cServiceGroups[eTotalServiceGroups] = {
    {"236.6.7.20", 6720, {1, 2, eReadType, eRadarCheck, 0}},
    {"236.6.7.4", 6768, {0, 1, eMultiRadarNegotiate, eOtherType, 0}},
    {"236.6.7.5", 6878, {0, 0, eMultiRadarService, eOtherType, 0}},
};

// Returns the address of a service group. Any thread.
static inline NetAddress serviceAddress(eServiceGroup group)
{
    const NetAddress address = {net::transAddr(cServiceGroups[group].group), net::HtoNs(cServiceGroups[group].port)};
    return address;
}

#endif
