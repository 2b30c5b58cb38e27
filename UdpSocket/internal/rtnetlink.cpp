#include "UdpSocket/internal/rtnetlink.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <sys/time.h>

namespace net
{
namespace
{
constexpr std::size_t cBufferSize = 65536;  // the kernel's own largest piece of a dump is 32 KiB

tDescriptor openSocket(unsigned int groups, int flags)
{
    tDescriptor socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | flags, NETLINK_ROUTE));
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = groups;
    const timeval patience{1, 0};
    if (socket.valid() && (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
                           ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience) != 0))
        socket.reset();
    return socket;
}

// Returns the record behind a message head; null if the message is too short for it.
template <typename tRecord>
const tRecord* recordOf(const nlmsghdr& head)
{
    return head.nlmsg_len < NLMSG_LENGTH(sizeof(tRecord)) ? nullptr : static_cast<const tRecord*>(NLMSG_DATA(&head));
}

template <typename tRecord, typename tVisit>
void forEachAttribute(const nlmsghdr& head, tVisit visit)
{
    const auto* bytes = reinterpret_cast<const char*>(&head);
    std::size_t at = NLMSG_LENGTH(NLMSG_ALIGN(sizeof(tRecord)));
    rtattr attribute;
    while (at + sizeof attribute <= head.nlmsg_len)
    {
        std::memcpy(&attribute, bytes + at, sizeof attribute);
        if (attribute.rta_len < sizeof attribute || attribute.rta_len > head.nlmsg_len - at)
            return;
        visit(attribute.rta_type & NLA_TYPE_MASK, bytes + at + sizeof attribute, attribute.rta_len - sizeof attribute);
        at += RTA_ALIGN(attribute.rta_len);
    }
}

template <typename tNumber>
tNumber numberIn(const char* value, std::size_t size)
{
    tNumber number{};
    if (size >= sizeof number)
        std::memcpy(&number, value, sizeof number);
    return number;
}

void addLink(const nlmsghdr& head, tInterfaceTable& table)
{
    const auto* info = recordOf<ifinfomsg>(head);
    if (head.nlmsg_type != RTM_NEWLINK || info == nullptr)
        return;
    tLink link{info->ifi_index, "", (info->ifi_flags & IFF_LOOPBACK) != 0};
    forEachAttribute<ifinfomsg>(head, [&](int type, const char* value, std::size_t size) {
        if (type == IFLA_IFNAME)
            link.name.assign(value, ::strnlen(value, size));
    });
    table.links.push_back(std::move(link));
}

void addAddress(const nlmsghdr& head, tInterfaceTable& table)
{
    const auto* info = recordOf<ifaddrmsg>(head);
    if (head.nlmsg_type != RTM_NEWADDR || info == nullptr || info->ifa_family != AF_INET)
        return;
    std::uint32_t local = 0;
    std::uint32_t other = 0;  // on a point-to-point link the far end's, else the same as the local one
    forEachAttribute<ifaddrmsg>(head, [&](int type, const char* value, std::size_t size) {
        if (type == IFA_LOCAL)
            local = numberIn<std::uint32_t>(value, size);
        if (type == IFA_ADDRESS)
            other = numberIn<std::uint32_t>(value, size);
    });
    table.addresses.push_back({static_cast<int>(info->ifa_index), local != 0 ? local : other});
}

// The default route of the main table with the lowest metric.
class tDefaultRoute
{
public:
    void consider(const nlmsghdr& head)
    {
        const auto* route = recordOf<rtmsg>(head);
        if (head.nlmsg_type != RTM_NEWROUTE || route == nullptr || route->rtm_family != AF_INET ||
            route->rtm_dst_len != 0 || route->rtm_type != RTN_UNICAST || route->rtm_table != RT_TABLE_MAIN)
            return;
        int link = 0;
        std::uint32_t metric = 0;
        forEachAttribute<rtmsg>(head, [&](int type, const char* value, std::size_t size) {
            if (type == RTA_OIF)
                link = numberIn<int>(value, size);
            if (type == RTA_PRIORITY)
                metric = numberIn<std::uint32_t>(value, size);
            if (type == RTA_MULTIPATH)
                link = numberIn<rtnexthop>(value, size).rtnh_ifindex;
        });
        if (link != 0 && (m_link == 0 || metric < m_metric))
        {
            m_link = link;
            m_metric = metric;
        }
    }
    int link() const { return m_link; }

private:
    int m_link = 0;
    std::uint32_t m_metric = 0;
};
}  // namespace

tRtnetlink::tRtnetlink()
    : m_queries(openSocket(0, 0)),
      m_changes(openSocket(RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV4_ROUTE, SOCK_NONBLOCK)), m_buffer(cBufferSize)
{}

std::optional<tInterfaceTable> tRtnetlink::interfaces(bool withDefaultRoute)
{
    tInterfaceTable table;
    tDefaultRoute route;
    if (!dump(RTM_GETLINK, [&](const nlmsghdr& head) { addLink(head, table); }) ||
        !dump(RTM_GETADDR, [&](const nlmsghdr& head) { addAddress(head, table); }))
        return std::nullopt;
    if (withDefaultRoute && !dump(RTM_GETROUTE, [&](const nlmsghdr& head) { route.consider(head); }))
        return std::nullopt;
    table.defaultRouteLink = route.link();
    return table;
}

// An overrun (ENOBUFS) means missed changes, which count as a change.
void tRtnetlink::discardChanges()
{
    while (::recv(m_changes.get(), m_buffer.data(), m_buffer.size(), MSG_DONTWAIT) >= 0 || errno == EINTR ||
           errno == ENOBUFS)
        continue;
}

template <typename tVisit>
bool tRtnetlink::dump(unsigned short request, tVisit visit)
{
    return sendRequest(request) && readAnswer(visit);
}

bool tRtnetlink::sendRequest(unsigned short request)
{
    struct
    {
        nlmsghdr head;
        rtgenmsg family;
    } message{};
    message.head.nlmsg_len = NLMSG_LENGTH(sizeof(rtgenmsg));
    message.head.nlmsg_type = request;
    message.head.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    message.head.nlmsg_seq = ++m_sequence;
    message.family.rtgen_family = request == RTM_GETLINK ? AF_UNSPEC : AF_INET;
    return ::send(m_queries.get(), &message, message.head.nlmsg_len, 0) >= 0;
}

// Reads up to the end mark of the last request; skips answers to an earlier one that failed.
template <typename tVisit>
bool tRtnetlink::readAnswer(tVisit visit)
{
    for (;;)
    {
        const ssize_t got = ::recv(m_queries.get(), m_buffer.data(), m_buffer.size(), 0);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        auto left = static_cast<unsigned int>(got);
        for (auto* head = reinterpret_cast<nlmsghdr*>(m_buffer.data()); NLMSG_OK(head, left);
             head = NLMSG_NEXT(head, left))
        {
            if (head->nlmsg_seq != m_sequence)
                continue;
            if (head->nlmsg_type == NLMSG_DONE || head->nlmsg_type == NLMSG_ERROR)
                return head->nlmsg_type == NLMSG_DONE;
            visit(*head);
        }
    }
}
}  // namespace net
