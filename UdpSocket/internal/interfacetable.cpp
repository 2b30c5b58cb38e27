#include "UdpSocket/internal/interfacetable.h"

#include <algorithm>

#include "UdpSocket/udpsocket.h"

namespace net
{
namespace
{
template <typename tItem, typename tMatch>
const tItem* find(const std::vector<tItem>& items, tMatch matches)
{
    const auto found = std::find_if(items.begin(), items.end(), matches);
    return found == items.end() ? nullptr : &*found;
}

const tLink* linkNamed(const tInterfaceTable& table, const std::string& name)
{
    return find(table.links, [&](const tLink& link) { return link.name == name; });
}

const tLink* defaultLink(const tInterfaceTable& table)
{
    const tLink* routed = find(table.links, [&](const tLink& link) { return link.index == table.defaultRouteLink; });
    return routed != nullptr ? routed : find(table.links, [](const tLink& link) { return link.loopback; });
}

// Returns the preferred address while the link has it, else the link's main one.
tLocalAddress addressOf(const tInterfaceTable& table, const tLink& link, std::uint32_t preferred)
{
    const tLinkAddress* main =
        find(table.addresses, [&](const tLinkAddress& entry) { return entry.linkIndex == link.index; });
    const bool keepsPreferred = find(table.addresses, [&](const tLinkAddress& entry) {
                                    return entry.linkIndex == link.index && entry.ip == preferred;
                                }) != nullptr;
    if (main == nullptr)
        return {0, link.index};
    return {keepsPreferred ? preferred : main->ip, link.index};
}
}  // namespace

bool mustNotify(const tLocalAddress& before, const tLocalAddress& now)
{
    return before.ip != now.ip || (now.ip != 0 && before.linkIndex != now.linkIndex);
}

std::optional<tInterfaceChoice> choiceNamed(const tInterfaceTable& table, const std::string& nameOrAddress)
{
    if (linkNamed(table, nameOrAddress) != nullptr)
        return tInterfaceChoice{nameOrAddress, 0};
    const std::uint32_t ip = transAddr(nameOrAddress.c_str());
    if (ip == 0)
        return std::nullopt;
    return tInterfaceChoice{"", ip};
}

tInterfaceChoice settled(const tInterfaceTable& table, const tInterfaceChoice& choice)
{
    if (!choice.name.empty() || choice.ip == 0)
        return choice;
    const tLinkAddress* entry = find(table.addresses, [&](const tLinkAddress& each) { return each.ip == choice.ip; });
    const tLink* link = entry == nullptr
                            ? nullptr
                            : find(table.links, [&](const tLink& each) { return each.index == entry->linkIndex; });
    return link == nullptr ? choice : tInterfaceChoice{link->name, choice.ip};
}

tLocalAddress chosenAddress(const tInterfaceTable& table, const tInterfaceChoice& choice)
{
    if (choice.name.empty() && choice.ip != 0)
        return {choice.ip, 0};
    const tLink* link = choice.isDefault() ? defaultLink(table) : linkNamed(table, choice.name);
    return link == nullptr ? tLocalAddress{} : addressOf(table, *link, choice.ip);
}
}  // namespace net
