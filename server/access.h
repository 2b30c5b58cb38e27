// tAccess: who may ask: hosts, origins, the headers of a POST, the token.
//
// Why      a server on the loopback interface is reached by every page that its user's browser shows. The name that a
//          request is for keeps out pages whose name leads here; the origin keeps out pages that ask across.
// Threads  any.
#ifndef KESTOVA_SERVER_ACCESS_H
#define KESTOVA_SERVER_ACCESS_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "server/http.h"
#include "server/options.h"
#include "server/tickets.h"
#include "server/token.h"

namespace server
{
class tAccess
{
public:
    // `port` is the one that is listened on.
    tAccess(const tServeOptions& options, std::uint16_t port);

    // Throw tRefusal. Of every request:
    void checkSender(const tHttpRequest& request) const;  // host, origin, and the headers of a POST
    // Of everything but the page; `ticket` stands for the token if it is for this target.
    void checkToken(const tHttpRequest& request, const std::string& ticket);
    // Of an upgrade: origin and token among the subprotocols. Returns the subprotocol to answer, empty for none.
    std::string checkUpgrade(const tHttpRequest& request);

    tTickets& tickets() { return m_tickets; }

private:
    bool isOwnHost(std::string_view host, const std::string& local) const;
    bool isOwnOrigin(std::string_view origin, std::string_view host) const;
    bool isGivenHost(std::string_view host) const;
    void requireToken(const std::string& given, const tHttpRequest& request);

    const std::string m_token;
    const std::uint16_t m_port;
    bool m_isLoopback;
    std::vector<std::string> m_hosts;  // of --host, in lower case
    tTickets m_tickets;
    tWrongTokens m_wrong;
};
}  // namespace server

#endif
