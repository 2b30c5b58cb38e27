// What this machine's network interfaces are at one moment, and which of their addresses is meant.
//
// Pure: the table comes from rtnetlink.h, or from a test.
#ifndef KESTOVA_NET_INTERFACETABLE_H
#define KESTOVA_NET_INTERFACETABLE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace net
{
struct tLink
{
    int index;
    std::string name;
    bool loopback;
};

struct tLinkAddress
{
    int linkIndex;
    std::uint32_t ip;  // in_addr.s_addr
};

struct tInterfaceTable
{
    std::vector<tLink> links;
    std::vector<tLinkAddress> addresses;  // in the kernel's order: an interface's first is its main one
    int defaultRouteLink = 0;             // 0: there is no default route
};

// Which interface to follow. Both empty: the one of the default route, else the loopback interface.
struct tInterfaceChoice
{
    std::string name;      // empty with an ip: the interface that has or will have it
    std::uint32_t ip = 0;  // the address to prefer among the interface's
    bool isDefault() const { return name.empty() && ip == 0; }
};

// The address to use. linkIndex distinguishes an interface from a later one with the same address: memberships of
// the first are gone.
struct tLocalAddress
{
    std::uint32_t ip = 0;  // 0: the interface has none, or is not there
    int linkIndex = 0;     // 0: no interface has the address
};
// Whether whoever uses `before` must know of `now`.
bool mustTell(const tLocalAddress& before, const tLocalAddress& now);

// The choice that a text names: an interface that exists, or a dotted address; nothing if it is neither.
std::optional<tInterfaceChoice> choiceNamed(const tInterfaceTable& table, const std::string& nameOrAddress);
// A choice by address takes the name of the interface that has the address, as soon as one has.
tInterfaceChoice settled(const tInterfaceTable& table, const tInterfaceChoice& choice);
// The address of a choice. An address that no interface has is given as it stands.
tLocalAddress chosenAddress(const tInterfaceTable& table, const tInterfaceChoice& choice);
}  // namespace net

#endif
