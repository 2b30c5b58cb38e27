// tServer: `kestova serve`: recordings and live radars for browsers.
#ifndef KESTOVA_SERVER_SERVER_H
#define KESTOVA_SERVER_SERVER_H

#include <chrono>
#include <memory>
#include <string>

#include "server/httpserver.h"
#include "server/options.h"

namespace server
{
class tServer
{
public:
    // Answers requests when it returns. Throws recordings::tFailure if it cannot listen, a root is no folder, the
    // directory of radars cannot be read, or the address is not of the loopback interface and there is no token.
    explicit tServer(const tServeOptions& options, const tHttpLimits& limits = {});
    ~tServer();
    tServer(const tServer&) = delete;
    tServer& operator=(const tServer&) = delete;

    std::string url() const;  // "http://127.0.0.1:8780/"
    // Ends all but the recordings. Returns false if work was still under way after that time: the object may then not
    // be destroyed, and the process has to end.
    bool stop(std::chrono::milliseconds atMost);

private:
    class tPrivate;
    std::unique_ptr<tPrivate> d;
};
}  // namespace server

#endif
