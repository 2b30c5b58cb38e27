#include "sessions/check/networkchecks.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <fstream>
#include <ifaddrs.h>
#include <memory>
#include <net/if.h>
#include <netinet/in.h>

#include "KestovaRecordings/failure.h"
#include "UdpSocket/datagramreceiver.h"
#include "UdpSocket/udpsocket.h"

namespace session
{
using namespace recordings;

namespace
{
constexpr int cReceiveBuffer = 16 * 1024 * 1024;  // as a recorder's

class tNullListener : public net::iDatagramListener
{
public:
    void OnDatagram(const net::tReceivedDatagram&) override {}
};

std::string groupText(const NetAddress& group)
{
    return fmt::format("{}:{}", net::transAddr(group.ip), net::NtoHs(group.port));
}

std::string linkText(const tLink& link)
{
    return fmt::format("{} ({})", link.name, net::transAddr(link.ip));
}

std::string listed(const std::vector<tLink>& all)
{
    std::string text;
    for (const tLink& link : all)
        text += (text.empty() ? "" : ", ") + (link.ip != 0 ? link.name + " " + net::transAddr(link.ip) : link.name);
    return text;
}

// Returns the first that is up, has an address and is no loopback interface; the loopback interface if there is none.
std::string likelyName(const std::vector<tLink>& all)
{
    const auto link = std::find_if(all.begin(), all.end(),
                                   [](const tLink& one) { return one.isUp && one.ip != 0 && !one.isLoopback; });
    return link != all.end() ? link->name : "lo";
}

tCheck checkLink(const tLink& link)
{
    const std::string name = "interface";
    if (link.ip == 0)
        return failure(name, link.name + " has no IPv4 address",
                       fmt::format("sudo ip address add 192.168.1.20/24 dev {}", link.name));
    if (!link.isUp)
        return failure(name, linkText(link) + " is down", fmt::format("sudo ip link set {} up", link.name));
    if (!link.isRunning)
        return failure(name, linkText(link) + " has no carrier: is the cable in?",
                       fmt::format("ip -brief link show {}", link.name));
    if (!link.canMulticast && !link.isLoopback)
        return failure(name, linkText(link) + " does not receive multicast",
                       fmt::format("sudo ip link set {} multicast on", link.name));
    return ok(name, "receives on " + linkText(link));
}
}  // namespace

std::vector<tLink> links()
{
    ifaddrs* first = nullptr;
    if (getifaddrs(&first) != 0)
        throw tFailure("cannot list this machine's network interfaces");
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(first, freeifaddrs);
    std::vector<tLink> all;
    for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next)
    {
        const bool isAddress = entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_INET;
        const auto known = [&](const tLink& link) { return link.name == entry->ifa_name; };
        sockaddr_in address{};
        if (isAddress)
            std::memcpy(&address, entry->ifa_addr, sizeof address);
        // The kernel lists the interfaces first, without addresses, then the addresses of each.
        const auto bare =
            std::find_if(all.begin(), all.end(), [&](const auto& link) { return known(link) && link.ip == 0; });
        if (isAddress && bare != all.end())
            bare->ip = address.sin_addr.s_addr;
        else if (isAddress || std::none_of(all.begin(), all.end(), known))
            all.push_back({entry->ifa_name, address.sin_addr.s_addr, (entry->ifa_flags & IFF_UP) != 0,
                           (entry->ifa_flags & IFF_RUNNING) != 0, (entry->ifa_flags & IFF_LOOPBACK) != 0,
                           (entry->ifa_flags & IFF_MULTICAST) != 0});
    }
    return all;
}

tCheck checkInterface(const std::vector<tLink>& all, const std::string& nameOrAddress, std::uint32_t localIp)
{
    const std::uint32_t wanted = nameOrAddress.empty() ? localIp : net::transAddr(nameOrAddress.c_str());
    const auto link = std::find_if(all.begin(), all.end(), [&](const tLink& one) {
        return one.name == nameOrAddress || (wanted != 0 && one.ip == wanted);
    });
    if (link != all.end() && link->isLoopback && nameOrAddress.empty())
        return warning(
            "interface",
            fmt::format("receives on {}, where only this machine is heard: choose the radar's interface with "
                        "--local-ip from {}",
                        linkText(*link), listed(all)),
            "ip -brief address");
    if (link != all.end())
        return checkLink(*link);
    if (nameOrAddress.empty())
        return failure("interface", "no interface to receive on: choose one with --local-ip from " + listed(all),
                       "ip -brief address");
    return failure(
        "interface",
        fmt::format("no interface of this machine is {}: choose --local-ip from {}", nameOrAddress, listed(all)),
        "ip -brief address");
}

tCheck checkRoute(const std::vector<tLink>& all, const std::vector<NetAddress>& groups, bool kernelChooses)
{
    if (!kernelChooses)
        return ok("route", "groups are joined on the interface itself: no route is needed");
    for (const NetAddress& group : groups)
    {
        if (net::routeAddress(group) != 0)
            continue;
        const std::string why = std::strerror(errno);
        const bool isMulticast = IN_MULTICAST(ntohl(group.ip));
        return failure(
            "route", fmt::format("there is no route for {} ({}), and no --local-ip", net::transAddr(group.ip), why),
            fmt::format("sudo ip route add {} dev {}",
                        isMulticast ? std::string("224.0.0.0/4") : net::transAddr(group.ip) + "/32", likelyName(all)));
    }
    return ok("route", "the kernel has a route for each group");
}

tCheck checkPort(const std::vector<NetAddress>& notJoined)
{
    for (const NetAddress& group : notJoined)
    {
        const tPortHolder holder = holderOf(group);
        const int port = net::NtoHs(group.port);
        if (holder.inode != 0 && holder.pid != 0)
            return failure(
                "port",
                fmt::format("{} (process {}) holds port {} and does not share it", holder.program, holder.pid, port),
                fmt::format("kill {}", holder.pid));
        if (holder.inode != 0)
            return failure("port", fmt::format("another user's program holds port {} and does not share it", port),
                           fmt::format("sudo ss -ulpn 'sport = {}'", port));
    }
    return ok("port", "nobody holds a port of the groups for itself");
}

tCheck checkJoin(const std::vector<NetAddress>& notJoined, std::size_t groups, const std::string& interface)
{
    std::string text;
    for (const NetAddress& group : notJoined)
        text += (text.empty() ? "" : ", ") + groupText(group);
    if (text.empty())
        return ok("join", fmt::format("{} groups were joined", groups));
    return failure("join", fmt::format("cannot receive {}; --verbose shows the reason", text),
                   interface.empty() ? "ip -brief address" : fmt::format("ip address show dev {}", interface));
}

tCheck checkReceiveBuffer(const NetAddress& group, std::uint32_t localIp)
{
    tNullListener listener;
    const net::tDatagramReceiver receiver(&listener, localIp, group, cReceiveBuffer);
    const int granted = receiver.receiveBufferSize();
    if (granted >= cReceiveBuffer)
        return ok("receive_buffer", fmt::format("the kernel grants {} bytes for a group", granted));
    if (!receiver.valid())
        return warning("receive_buffer", "not known: no group could be joined", "sysctl net.core.rmem_max");
    return warning(
        "receive_buffer",
        fmt::format("the kernel grants {} of {} bytes for a group: bursts may be dropped", granted, cReceiveBuffer),
        fmt::format("sudo sysctl -w net.core.rmem_max={}", cReceiveBuffer));
}

// ---- the reverse-path filter ----

// The kernel takes the larger of both.
eReversePath reversePathOf(const std::string& interface)
{
    int filter = 0;
    for (const std::string& name : {std::string("all"), interface})
    {
        int value = 0;
        std::ifstream file("/proc/sys/net/ipv4/conf/" + name + "/rp_filter");
        if (file >> value)
            filter = std::max(filter, value);
    }
    return static_cast<eReversePath>(std::clamp(filter, 0, 2));
}

bool hasDefaultRoute()
{
    constexpr char cSomewhere[] = "192.0.2.1";  // nobody's; nothing is sent
    return net::routeAddress({net::transAddr(cSomewhere), net::HtoNs(9)}) != 0;
}

tCheck checkReversePath(const tLink& link, eReversePath filter, bool defaultRoute, bool isStreamSilent)
{
    const std::string name = "reverse_path";
    if (link.isLoopback || filter == eReversePath::eAccepts)
        return ok(name, fmt::format("{} takes datagrams from every sender", link.name));
    const bool mayDrop = filter == eReversePath::eDropsUnlessSameWay || !defaultRoute;
    if (!mayDrop || !isStreamSilent)
        return ok(name, fmt::format("the reverse-path filter of {} ({}) lets pass what was heard", link.name,
                                    static_cast<int>(filter)));
    return warning(
        name,
        fmt::format("the reverse-path filter of {} ({}) may drop what silent streams send: senders that this "
                    "machine has no route back to",
                    link.name, static_cast<int>(filter)),
        fmt::format("sudo sysctl -w net.ipv4.conf.all.rp_filter=0 net.ipv4.conf.{}.rp_filter=0", link.name));
}
}  // namespace session
