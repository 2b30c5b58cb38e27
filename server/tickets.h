// tTickets: what stands for the token in the address of a download, once.
#ifndef KESTOVA_SERVER_TICKETS_H
#define KESTOVA_SERVER_TICKETS_H

#include <chrono>
#include <map>
#include <mutex>
#include <string>

namespace server
{
// Any thread.
class tTickets
{
public:
    using tTime = std::chrono::steady_clock::time_point;

    // Returns a ticket for a path, which may have a query; empty while too many are out.
    std::string issue(const std::string& path, tTime now);
    // Returns whether the ticket is for the target ("/a?b=c&ticket=..."), and ends it.
    bool redeem(const std::string& ticket, const std::string& target, tTime now);

private:
    struct tTicket
    {
        std::string path;
        tTime until;
    };
    std::mutex m_mutex;
    std::map<std::string, tTicket> m_tickets;  // guarded by m_mutex
};
}  // namespace server

#endif
