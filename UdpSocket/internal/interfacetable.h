// The network interfaces of this machine at one moment, and the choice of one of their addresses.
//
// Pure functions of a table, which tRtnetlink reads or a test builds.
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

// The interface to follow. Both empty: the one of the default route, else the loopback interface.
struct tInterfaceChoice
{
    std::string name;      // empty with an ip: the interface that has or will have it
    std::uint32_t ip = 0;  // the address to prefer among the interface's
    bool isDefault() const { return name.empty() && ip == 0; }
};

// The address to use. linkIndex distinguishes an interface from a later one with the same address, on which no group is
// joined.
struct tLocalAddress
{
    std::uint32_t ip = 0;  // 0: the interface has none, or does not exist
    int linkIndex = 0;     // 0: no interface has the address
};
// Returns whether a user of `before` must be notified of `now`.
bool mustNotify(const tLocalAddress& before, const tLocalAddress& now);

// Returns the choice that a text names: an existing interface or a dotted address; nothing if it is neither.
std::optional<tInterfaceChoice> choiceNamed(const tInterfaceTable& table, const std::string& nameOrAddress);
// Returns a choice by address with the name of the interface that has the address; unchanged while none has it.
tInterfaceChoice settled(const tInterfaceTable& table, const tInterfaceChoice& choice);
// Returns the address of a choice. An address that no interface has is returned as it is.
tLocalAddress chosenAddress(const tInterfaceTable& table, const tInterfaceChoice& choice);
}  // namespace net

#endif
