// A UDP group as in records and packages: six packed bytes, both fields in network byte order.
#ifndef KESTOVA_NETADDRESS_H
#define KESTOVA_NETADDRESS_H

#include <stdint.h>

#pragma pack(push, 1)
struct NetAddress
{
    uint32_t ip;    // as net::transAddr returns it: in_addr.s_addr
    uint16_t port;  // as net::HtoNs returns it
};
#pragma pack(pop)

static_assert(sizeof(NetAddress) == 6, "NetAddress is exchanged as six packed bytes");

inline bool operator==(const NetAddress& a, const NetAddress& b)
{
    return a.ip == b.ip && a.port == b.port;
}

// Orders by ip, then by port, both as unsigned numbers; the order of every socket table.
struct tNetAddress_less
{
    bool operator()(const NetAddress& a, const NetAddress& b) const
    {
        return a.ip != b.ip ? a.ip < b.ip : a.port < b.port;
    }
};

#endif
