#include "tools/options.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <ifaddrs.h>
#include <memory>

#include "UdpSocket/udpsocket.h"
#include "tools/failure.h"
#include "tools/streamkinds.h"

namespace tool
{
namespace
{
struct tInterface
{
    std::string name;
    std::uint32_t ip;
};

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
}  // namespace

CLI::Option* addStreams(CLI::App& command, std::vector<std::string>& texts)
{
    return command.add_option("--streams", texts, "Only these streams, separated by commas: " + allStreamNames())
        ->type_name("NAME,...")
        ->check(checkedBy([](const std::string& text) { parseStreams({text}); }));
}

CLI::Option* tRadarOptions::addTo(CLI::App& command)
{
    CLI::Option* file = command.add_option("--radars", directory, "Directory file of the radars (JSON)");
    file->type_name("FILE");
    command.add_option("--radar", serial, "Serial number of the radar in the directory")->type_name("SERIAL");
    command.add_option("--id", id, "Number of the radar among several of that serial number")
        ->type_name("N")
        ->capture_default_str();
    return file;
}

const RadarAddress& tRadarOptions::find() const
{
    MultiRadarClient& client = *MultiRadarClient::getInstance();
    std::string error;
    if (!client.loadDirectory(directory, &error))
        throw tFailure(error);
    const RadarAddress* found = client.getAddress(serial.c_str(), id);
    if (found == nullptr)
        throw tFailure(fmt::format("{} has no radar {} with id {}: compare --radar and --id with its entries",
                                   directory, serial, id));
    return *found;
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
}  // namespace tool
