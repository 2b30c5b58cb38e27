#include "sessions/localaddress.h"

#include <arpa/inet.h>
#include <cstring>
#include <fmt/format.h>
#include <ifaddrs.h>
#include <memory>
#include <vector>

#include "KestovaRecordings/failure.h"
#include "UdpSocket/udpsocket.h"

namespace session
{
using namespace recordings;

std::vector<tInterface> localInterfaces()
{
    ifaddrs* first = nullptr;
    if (getifaddrs(&first) != 0)
        throw tFailure("cannot list this machine's network interfaces");
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(first, freeifaddrs);
    std::vector<tInterface> found;
    for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next)
    {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET)
            continue;
        sockaddr_in address{};
        std::memcpy(&address, entry->ifa_addr, sizeof(address));
        found.push_back({entry->ifa_name, address.sin_addr.s_addr});
    }
    return found;
}

std::string listed(const std::vector<tInterface>& interfaces)
{
    std::string text;
    for (const tInterface& one : interfaces)
        text += fmt::format("{}{} {}", text.empty() ? "" : ", ", one.name, net::transAddr(one.ip));
    return text;
}

tInterface interfaceWith(std::uint32_t ip)
{
    for (const tInterface& one : localInterfaces())
    {
        if (one.ip == ip)
            return one;
    }
    return {"", ip};
}

std::uint32_t localAddress(const std::string& nameOrAddress)
{
    const std::uint32_t wanted = net::transAddr(nameOrAddress.c_str());
    const auto interfaces = localInterfaces();
    for (const tInterface& one : interfaces)
    {
        if (one.name == nameOrAddress || (wanted != 0 && one.ip == wanted))
            return one.ip;
    }
    throw tFailure(fmt::format("no interface of this machine is {}: choose --local-ip from {}", nameOrAddress,
                               listed(interfaces)));
}
}  // namespace session
