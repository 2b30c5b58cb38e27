// The interface on which a session receives or sends.
#ifndef KESTOVA_SESSIONS_LOCALADDRESS_H
#define KESTOVA_SESSIONS_LOCALADDRESS_H

#include <cstdint>
#include <string>
#include <vector>

namespace session
{
struct tInterface
{
    std::string name;
    std::uint32_t ip;  // as net::transAddr returns it
};

// Returns the IPv4 addresses of this machine, one entry each. Throws tFailure if the system does not list them.
std::vector<tInterface> localInterfaces();
// Returns "lo 127.0.0.1, eth0 192.168.1.20".
std::string listed(const std::vector<tInterface>& interfaces);
// Returns the interface that has this address; without a name if none has.
tInterface interfaceWith(std::uint32_t ip);

// Returns the address of a local interface, given by address or name ("127.0.0.1", "eth0"), as net::transAddr returns
// it. Throws tFailure if this machine has no such interface.
std::uint32_t localAddress(const std::string& nameOrAddress);
}  // namespace session

#endif
