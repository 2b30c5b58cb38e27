#include "server/routes.h"

#include <optional>

#include "server/answers.h"

namespace server
{
namespace
{
// Returns the segments at the places of "*"; nothing if the path is another one.
std::optional<std::vector<std::string>> match(const std::vector<std::string>& pattern,
                                              const std::vector<std::string>& segments)
{
    if (pattern.size() != segments.size())
        return std::nullopt;
    std::vector<std::string> parts;
    for (std::size_t i = 0; i < pattern.size(); ++i)
    {
        if (pattern[i] == "*")
            parts.push_back(segments[i]);
        else if (pattern[i] != segments[i])
            return std::nullopt;
    }
    return parts;
}
}  // namespace

void tRoutes::add(const std::string& method, const std::string& path, tHandle handle)
{
    m_routes.push_back({method, parseTarget(path).value().segments, std::move(handle)});
}

tHttpAnswer tRoutes::answer(const tHttpRequest& request, const tTarget& target) const
{
    bool isKnown = false;
    for (const tRoute& route : m_routes)
    {
        auto parts = match(route.segments, target.segments);
        isKnown |= parts.has_value();
        if (parts && route.method == request.method)
            return route.handle({request, target, std::move(*parts)});
    }
    if (isKnown)
        throw tRefusal(405, "wrong_method", "this address has another method");
    throw tRefusal(404, "not_found", "there is nothing at this address");
}
}  // namespace server
