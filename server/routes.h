// tRoutes: which function answers a request.
#ifndef KESTOVA_SERVER_ROUTES_H
#define KESTOVA_SERVER_ROUTES_H

#include <functional>
#include <string>
#include <vector>

#include "server/http.h"
#include "server/target.h"

namespace server
{
struct tCall
{
    const tHttpRequest& request;
    const tTarget& target;
    std::vector<std::string> parts;  // of the path, where the route has a "*"
};

using tHandle = std::function<tHttpAnswer(const tCall& call)>;

// Filled before the first request; then any thread.
class tRoutes
{
public:
    // `path` is like "/api/v1/recordings/*/files/*".
    void add(const std::string& method, const std::string& path, tHandle handle);
    // Throws tRefusal: 404 for no such path, 405 where it has other methods alone; and what the function throws.
    tHttpAnswer answer(const tHttpRequest& request, const tTarget& target) const;

private:
    struct tRoute
    {
        std::string method;
        std::vector<std::string> segments;
        tHandle handle;
    };
    std::vector<tRoute> m_routes;
};
}  // namespace server

#endif
