#include "server/access.h"

#include <algorithm>
#include <cctype>

#include "server/answers.h"
#include "server/httpserver.h"

namespace server
{
namespace
{
constexpr std::string_view cProtocol = "kestova.v1", cBearerProtocol = "bearer.", cBearer = "bearer ";

std::string lower(std::string_view text)
{
    std::string result(text);
    for (char& c : result)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return result;
}

// Returns the texts between commas, without blanks around them.
std::vector<std::string_view> listOf(std::string_view text)
{
    std::vector<std::string_view> parts;
    while (!text.empty())
    {
        std::string_view part = text.substr(0, text.find(','));
        text.remove_prefix(std::min(part.size() + 1, text.size()));
        part.remove_prefix(std::min(part.find_first_not_of(" \t"), part.size()));
        parts.push_back(part.substr(0, part.find_last_not_of(" \t") + 1));
    }
    return parts;
}

std::chrono::steady_clock::time_point now()
{
    return std::chrono::steady_clock::now();
}
}  // namespace

tAccess::tAccess(const tServeOptions& options, std::uint16_t port)
    : m_token(options.token), m_port(port), m_isLoopback(isLoopback(options.address))
{
    for (const std::string& host : options.hosts)
        m_hosts.push_back(lower(host));
}

// A name without a port is good for the port that is listened on, and for none: a proxy's 80 and 443.
bool tAccess::isGivenHost(std::string_view host) const
{
    const std::string port = ':' + std::to_string(m_port);
    return std::ranges::any_of(m_hosts, [&](const std::string& given) {
        return host == given || (host.ends_with(port) && host.substr(0, host.size() - port.size()) == given);
    });
}

bool tAccess::isOwnHost(std::string_view host, const std::string& local) const
{
    const auto isAt = [&](const std::string& address) {
        return host == address + ':' + std::to_string(m_port) || (m_port == 80 && host == address);
    };
    if (m_isLoopback && (isAt("127.0.0.1") || isAt("localhost") || isAt("[::1]")))
        return true;
    return isAt(local.substr(0, local.rfind(':'))) || isGivenHost(host);
}

bool tAccess::isOwnOrigin(std::string_view origin, std::string_view host) const
{
    return origin == "http://" + std::string(host) || (isGivenHost(host) && origin == "https://" + std::string(host));
}

void tAccess::checkSender(const tHttpRequest& request) const
{
    const std::string host = lower(request.header("host"));
    if (host.empty() || !isOwnHost(host, request.local))
        throw tRefusal(421, "wrong_host", "this server has another name", "start it with --host NAME");
    if (request.count("origin") != 0 && !isOwnOrigin(lower(request.header("origin")), host))
        throw tRefusal(403, "wrong_origin", "a page of another origin asks");
    const std::string_view site = request.header("sec-fetch-site");
    if (request.count("origin") == 0 && (site == "cross-site" || site == "same-site"))
        throw tRefusal(403, "wrong_origin", "a page of another origin asks");
    if (request.method != "GET" && request.method != "POST")
        throw tRefusal(405, "wrong_method", "there is GET and POST alone");
    if (request.method != "POST")
        return;
    if (request.header("x-kestova") != "1")
        throw tRefusal(403, "no_header", "a POST needs the header X-Kestova: 1");
    const std::string type = lower(request.header("content-type"));
    if (type.substr(0, type.find_first_of("; ")) != "application/json")
        throw tRefusal(415, "wrong_type", "a POST needs Content-Type: application/json");
}

void tAccess::requireToken(const std::string& given, const tHttpRequest& request)
{
    if (m_wrong.isBlocked(request.peer, now()))
        throw tRefusal(429, "too_many", "too many wrong tokens from this address", "wait a minute");
    if (given.empty())
        throw tRefusal(401, "no_token", "this server asks for a token", "open it with #token=...");
    if (isEqual(given, m_token))
        return;
    m_wrong.add(request.peer, now());
    throw tRefusal(401, "wrong_token", "this is not the token of the server");
}

void tAccess::checkToken(const tHttpRequest& request, const std::string& ticket)
{
    if (m_token.empty())
        return;
    if (!ticket.empty() && m_tickets.redeem(ticket, request.target, now()))
        return;
    const std::string_view given = request.header("authorization");
    const bool isBearer = lower(given.substr(0, cBearer.size())) == cBearer;
    requireToken(isBearer ? std::string(given.substr(cBearer.size())) : ticket, request);
}

std::string tAccess::checkUpgrade(const tHttpRequest& request)
{
    if (request.header("origin").empty())
        throw tRefusal(403, "wrong_origin", "a WebSocket needs an Origin");
    bool isOurs = false;
    std::string token;
    for (const std::string_view protocol : listOf(request.header("sec-websocket-protocol")))
    {
        isOurs |= protocol == cProtocol;
        if (protocol.starts_with(cBearerProtocol))
            token = fromBase64Url(protocol.substr(cBearerProtocol.size()));
    }
    if (!m_token.empty())
        requireToken(token, request);
    return isOurs ? std::string(cProtocol) : std::string();
}
}  // namespace server
