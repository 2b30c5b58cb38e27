#include "server/tickets.h"

#include <array>
#include <fmt/format.h>
#include <sys/random.h>

namespace server
{
namespace
{
constexpr std::chrono::seconds cValid{30};
constexpr std::size_t cMost = 256;
constexpr char cKey[] = "ticket=";

std::string randomText()
{
    std::array<unsigned char, 24> bytes{};
    if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
        return {};
    std::string text;
    for (const unsigned char byte : bytes)
        text += fmt::format("{:02x}", byte);
    return text;
}

// Returns the target without the key of the ticket.
std::string withoutTicket(const std::string& target)
{
    const std::size_t mark = target.find('?');
    std::string result = target.substr(0, mark), query = mark == std::string::npos ? "" : target.substr(mark + 1);
    char before = '?';
    while (!query.empty())
    {
        const std::string part = query.substr(0, query.find('&'));
        query.erase(0, part.size() + 1);
        if (part.empty() || part.starts_with(cKey))
            continue;
        result += before + part;
        before = '&';
    }
    return result;
}
}  // namespace

std::string tTickets::issue(const std::string& path, tTime now)
{
    const std::lock_guard lock(m_mutex);
    std::erase_if(m_tickets, [now](const auto& row) { return row.second.until < now; });
    std::string ticket = m_tickets.size() < cMost ? randomText() : std::string();
    if (!ticket.empty())
        m_tickets[ticket] = {withoutTicket(path), now + cValid};
    return ticket;
}

// A path without a query is good for any query.
bool tTickets::redeem(const std::string& ticket, const std::string& target, tTime now)
{
    const std::lock_guard lock(m_mutex);
    const auto found = m_tickets.find(ticket);
    if (found == m_tickets.end())
        return false;
    const tTicket given = found->second;
    const std::string asked = withoutTicket(target);
    const bool isSame = given.path == asked || given.path == asked.substr(0, asked.find('?'));
    if (isSame)
        m_tickets.erase(found);
    return isSame && now <= given.until;
}
}  // namespace server
