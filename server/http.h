// Requests, answers and streams as the server knows them: plain types, without a library of the network.
//
// Threads  tHttpServer calls iHttpHandler on threads of its own, several at a time; each session and each body on one
//          thread at a time.
#ifndef KESTOVA_SERVER_HTTP_H
#define KESTOVA_SERVER_HTTP_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace server
{
using tHeaders = std::vector<std::pair<std::string, std::string>>;

struct tHttpRequest
{
    std::string method, target;  // "GET", "/api/v1/server?x=1"
    tHeaders headers;            // names in lower case
    std::string body;
    std::string peer;        // the address that asks
    std::string local;       // the address and port that it came to: "127.0.0.1:8780", "[::1]:8780"
    bool isUpgrade = false;  // to a WebSocket

    // Returns the value of a header that is there once; an empty text otherwise.
    std::string_view header(std::string_view name) const;
    std::size_t count(std::string_view name) const;
};

// The bytes of an answer that are not at hand at once.
class iBody
{
public:
    virtual ~iBody() = default;
    // Replaces `chunk` by the next bytes; false at the end. May wait. An exception ends the connection, so that nobody
    // takes the part for the whole.
    virtual bool next(std::string& chunk) = 0;
};

struct tHttpAnswer
{
    unsigned status = 200;
    tHeaders headers;
    std::string body;
    std::shared_ptr<iBody> stream;        // in place of `body`
    std::optional<std::uint64_t> length;  // of the stream, where it is known
};

// A message to a viewer: shared, so that one encoding serves all.
struct tFrame
{
    std::shared_ptr<const std::string> bytes;
    bool isBinary = false;
};

// The server's end of a WebSocket. Any thread; does nothing after the end of the session.
class iWebSocketPeer
{
public:
    virtual ~iWebSocketPeer() = default;
    virtual void wake() = 0;  // there is something for iWebSocketSession::next()
    virtual void close(unsigned code, const std::string& reason) = 0;
};

class iWebSocketSession
{
public:
    virtual ~iWebSocketSession() = default;
    virtual void onText(std::string_view text) = 0;
    // Sets the next message to send; false while there is none. Called when the one before has been taken.
    virtual bool next(tFrame& frame) = 0;
    virtual void onEnd() = 0;  // no call follows
};

// An upgrade that is granted has a session.
struct tUpgrade
{
    std::shared_ptr<iWebSocketSession> session;
    std::string subprotocol;  // to answer; empty: none
    tHttpAnswer refusal;      // without a session
};

class iHttpHandler
{
public:
    virtual ~iHttpHandler() = default;
    virtual tHttpAnswer answer(const tHttpRequest& request) = 0;
    virtual tUpgrade upgrade(const tHttpRequest& request, std::shared_ptr<iWebSocketPeer> peer) = 0;
    // Returns the answer to what never became a request: a head that is too long or too slow (431, 408), a body that is
    // too long (413), no HTTP (400), a connection too many (503).
    virtual tHttpAnswer refuse(unsigned status) = 0;
};
}  // namespace server

#endif
