// tHttpServer: listens, reads requests within bounds, and sends what its handler answers.
//
// Threads  one thread has all sockets; handler and bodies are called on `workers` others.
// Errors   what a client does wrong ends its connection; nothing is logged for it.
#ifndef KESTOVA_SERVER_HTTPSERVER_H
#define KESTOVA_SERVER_HTTPSERVER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "server/http.h"

namespace server
{
struct tHttpLimits
{
    std::size_t headBytes = 16 * 1024, bodyBytes = 64 * 1024;
    std::size_t messageBytes = 16 * 1024;  // from a viewer
    std::size_t messagesPerSecond = 100;
    std::size_t connections = 256;
    std::chrono::milliseconds headTime{10'000};     // from its first byte to its last
    std::chrono::milliseconds idleTime{60'000};     // without a byte
    std::chrono::milliseconds stalledTime{30'000};  // that a viewer may take nothing
    std::size_t workers = 8;
};

class tHttpServer
{
public:
    // Listens when it returns; port 0 takes a free one. Connections wait for start(). Throws recordings::tFailure if
    // that fails. `handler` outlives the server.
    tHttpServer(const std::string& address, std::uint16_t port, iHttpHandler& handler, const tHttpLimits& limits);
    ~tHttpServer();
    tHttpServer(const tHttpServer&) = delete;
    tHttpServer& operator=(const tHttpServer&) = delete;

    std::uint16_t port() const;
    void start();
    // Closes every connection. Returns false if a call of the handler or of a body was still under way after that time:
    // the object may then not be destroyed.
    bool stop(std::chrono::milliseconds atMost);

private:
    class tPrivate;
    std::unique_ptr<tPrivate> d;
};

// Returns whether a text is an IP address, and of the loopback interface.
bool isAddress(const std::string& text);
bool isLoopback(const std::string& address);
}  // namespace server

#endif
