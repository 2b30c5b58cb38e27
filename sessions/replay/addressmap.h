// tAddressMap: the destinations of a replay in place of the recorded groups.
#ifndef KESTOVA_SESSIONS_REPLAY_ADDRESSMAP_H
#define KESTOVA_SESSIONS_REPLAY_ADDRESSMAP_H

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace session
{
class tAddressMap
{
public:
    // Adds "239.17.0.1:6001=239.99.0.1:7001", or "239.17.0.1=239.99.0.1" for every port of the address; ports stay
    // then. Throws std::invalid_argument with a sentence for the user.
    void add(const std::string& rule);
    // Returns what rules replace and none of these groups is; a group is an address as net::transAddr returns it and a
    // plain port.
    using tGroup = std::pair<std::uint32_t, std::uint16_t>;
    std::vector<std::string> unmatched(const std::set<tGroup>& groups) const;
    bool empty() const { return m_groups.empty() && m_addresses.empty(); }
    // Replaces a destination; `port` is a plain number. A rule with a port precedes one without.
    void apply(std::uint32_t& ip, std::uint16_t& port) const;

private:
    std::map<tGroup, tGroup> m_groups;
    std::map<std::uint32_t, std::uint32_t> m_addresses;
};
}  // namespace session

#endif
