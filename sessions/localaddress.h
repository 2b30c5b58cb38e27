// The interface on which a session receives or sends.
#ifndef KESTOVA_SESSIONS_LOCALADDRESS_H
#define KESTOVA_SESSIONS_LOCALADDRESS_H

#include <cstdint>
#include <string>

namespace session
{
// Returns the address of a local interface, given by address or name ("127.0.0.1", "eth0"), as net::transAddr returns
// it. Throws tFailure if this machine has no such interface.
std::uint32_t localAddress(const std::string& nameOrAddress);
}  // namespace session

#endif
