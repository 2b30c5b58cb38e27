#include "sessions/replay/addressmap.h"

#include <algorithm>
#include <stdexcept>

#include "KestovaRecordings/groupaddress.h"
#include "UdpSocket/udpsocket.h"

namespace session
{
using namespace recordings;

namespace
{
std::invalid_argument wrong(const std::string& rule, const std::string& why)
{
    return std::invalid_argument("'" + rule + "' maps nothing: " + why +
                                 "; write FROM=TO, both ADDRESS:PORT or both ADDRESS, such as 239.17.0.1=239.99.0.1");
}
}  // namespace

void tAddressMap::add(const std::string& rule)
{
    const std::size_t equal = rule.find('=');
    const std::string from = rule.substr(0, equal);
    const std::string to = equal == std::string::npos ? "" : rule.substr(equal + 1);
    const bool withPort = from.find(':') != std::string::npos;
    if (withPort != (to.find(':') != std::string::npos))
        throw wrong(rule, "a port on one side only");
    bool isNew = false;
    if (withPort)
    {
        const NetAddress source = parseGroup(from);
        const NetAddress target = parseGroup(to);
        isNew = m_groups.emplace(tGroup(source.ip, net::NtoHs(source.port)), tGroup(target.ip, net::NtoHs(target.port)))
                    .second;
    }
    else
    {
        const std::uint32_t source = net::transAddr(from.c_str());
        const std::uint32_t target = net::transAddr(to.c_str());
        if (source == 0 || target == 0)
            throw wrong(rule, "an address is missing or none");
        isNew = m_addresses.emplace(source, target).second;
    }
    if (!isNew)
        throw wrong(rule, from + " is mapped already");
}

std::vector<std::string> tAddressMap::unmatched(const std::set<tGroup>& groups) const
{
    std::vector<std::string> rules;
    for (const auto& [from, to] : m_groups)
        if (!groups.contains(from))
            rules.push_back(net::transAddr(from.first) + ':' + std::to_string(from.second));
    for (const auto& [from, to] : m_addresses)
        if (std::ranges::none_of(groups, [ip = from](const tGroup& group) { return group.first == ip; }))
            rules.push_back(net::transAddr(from));
    return rules;
}

void tAddressMap::apply(std::uint32_t& ip, std::uint16_t& port) const
{
    if (const auto group = m_groups.find({ip, port}); group != m_groups.end())
    {
        ip = group->second.first;
        port = group->second.second;
    }
    else if (const auto address = m_addresses.find(ip); address != m_addresses.end())
        ip = address->second;
}
}  // namespace session
