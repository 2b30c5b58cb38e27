// The one file that knows Boost: it takes half a minute to compile.
#include "server/httpserver.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <exception>
#include <future>
#include <optional>
#include <set>
#include <thread>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>

#include "KestovaRecordings/failure.h"
#include "server/workers.h"

namespace server
{
namespace
{
namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using tcp = asio::ip::tcp;
using tError = boost::system::error_code;
using tSteady = std::chrono::steady_clock;

constexpr std::chrono::seconds cLingering{2};  // for the rest of a request that is refused
constexpr std::chrono::seconds cClosing{10};   // for the other end of a WebSocket
constexpr std::size_t cRefusedAtOnce = 64;     // connections that get an answer when there are too many
constexpr int cViewerSendBuffer = 128 * 1024;  // what waits in the kernel is late and cannot be thinned
constexpr unsigned cTryAgainLater = 1013, cPolicy = 1008, cUnsupported = 1003;

class iClosable
{
public:
    virtual ~iClosable() = default;
    virtual void shut() = 0;
};

// What all connections share. All but the workers belongs to the thread of the sockets.
struct tShared
{
    tShared(iHttpHandler& handler_, const tHttpLimits& limits_)
        : handler(handler_), limits(limits_), workers(limits_.workers)
    {}

    iHttpHandler& handler;
    const tHttpLimits limits;
    bool stopping = false;
    std::set<iClosable*> open;  // before `io`, whose end takes the last of them away
    asio::io_context io;
    tWorkers workers;
};

// Counts itself among the connections.
class iOpen : public iClosable
{
public:
    explicit iOpen(tShared& shared) : m_shared(shared) { m_shared.open.insert(this); }
    ~iOpen() override { m_shared.open.erase(this); }
    iOpen(const iOpen&) = delete;
    iOpen& operator=(const iOpen&) = delete;

protected:
    tShared& m_shared;
};

std::string lower(std::string_view text)
{
    std::string result(text);
    for (char& c : result)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return result;
}

std::string textOf(const tcp::endpoint& endpoint)
{
    const std::string address = endpoint.address().to_string();
    return (endpoint.address().is_v6() ? '[' + address + ']' : address) + ':' + std::to_string(endpoint.port());
}

using tBeastRequest = http::request<http::string_body>;

tHttpRequest plain(tBeastRequest& from, const tcp::socket& socket)
{
    tHttpRequest request;
    request.method = std::string(from.method_string());
    request.target = std::string(from.target());
    for (const auto& field : from)
        request.headers.emplace_back(lower(field.name_string()), std::string(field.value()));
    request.body = std::move(from.body());
    tError error;
    request.peer = socket.remote_endpoint(error).address().to_string();
    request.local = textOf(socket.local_endpoint(error));
    request.isUpgrade = websocket::is_upgrade(from);
    return request;
}

// A viewer. Writes one message at a time, so that what waits stays where it can be thinned.
class tWebSocket : public iOpen, public std::enable_shared_from_this<tWebSocket>
{
public:
    tWebSocket(tShared& shared, tcp::socket&& socket)
        : iOpen(shared), m_socket(std::move(socket)), m_timer(shared.io), m_closing(shared.io)
    {
        tError ignored;
        beast::get_lowest_layer(m_socket).set_option(asio::socket_base::send_buffer_size(cViewerSendBuffer), ignored);
    }

    void accept(const tBeastRequest& request, const tUpgrade& granted, const tHeaders& headers)
    {
        m_session = granted.session;
        m_socket.read_message_max(m_shared.limits.messageBytes);
        m_socket.auto_fragment(false);
        websocket::stream_base::timeout timeouts{m_shared.limits.headTime, m_shared.limits.idleTime, true};
        m_socket.set_option(timeouts);
        m_socket.set_option(websocket::stream_base::decorator(
            [protocol = granted.subprotocol, headers](websocket::response_type& answer) {
                if (!protocol.empty())
                    answer.set(http::field::sec_websocket_protocol, protocol);
                for (const auto& [name, value] : headers)
                    answer.set(name, value);
            }));
        m_socket.async_accept(request, [self = shared_from_this()](const tError& error) {
            if (error || !self->m_session)  // it may have ended meanwhile
                return self->end();
            self->m_isOpen = true;
            self->read();
            self->pump();
        });
    }

    void pump()
    {
        if (!m_isOpen || m_isWriting || m_isClosing || !m_session)
            return;
        if (!m_session->next(m_frame))
            return;
        m_isWriting = true;
        watch();
        m_socket.binary(m_frame.isBinary);
        m_socket.async_write(asio::buffer(*m_frame.bytes),
                             [self = shared_from_this()](const tError& error, std::size_t) {
                                 self->m_isWriting = false;
                                 self->m_timer.cancel();
                                 self->m_frame = {};
                                 if (error)
                                     return self->end();
                                 if (self->m_closeCode != 0)
                                     return self->close(self->m_closeCode, self->m_closeReason);
                                 self->pump();
                             });
    }

    // After the message that is on its way.
    void close(unsigned code, const std::string& reason)
    {
        if (m_isClosing)
            return;
        m_closeCode = code;
        m_closeReason = reason;
        m_closing.expires_after(cClosing);
        m_closing.async_wait([self = shared_from_this()](const tError& error) {
            if (!error)
                self->end();
        });
        if (m_isWriting || !m_isOpen)
            return;
        m_isClosing = true;
        const websocket::close_reason why(static_cast<websocket::close_code>(code), reason);
        m_socket.async_close(why, [self = shared_from_this()](const tError&) { self->end(); });
    }

    void shut() override { end(); }

private:
    void read()
    {
        m_socket.async_read(m_buffer, [self = shared_from_this()](const tError& error, std::size_t) {
            if (error)
                return self->end();
            self->take();
        });
    }

    void take()
    {
        const auto now = tSteady::now();
        if (now - m_secondBegan >= std::chrono::seconds(1))
        {
            m_secondBegan = now;
            m_messages = 0;
        }
        if (++m_messages > m_shared.limits.messagesPerSecond)
            return close(cPolicy, "too many messages");
        if (!m_socket.got_text())
            return close(cUnsupported, "text only");
        if (m_closeCode == 0 && m_session)
            m_session->onText({static_cast<const char*>(m_buffer.data().data()), m_buffer.size()});
        m_buffer.consume(m_buffer.size());
        read();
    }

    // Nothing is taken for too long.
    void watch()
    {
        m_timer.expires_after(m_shared.limits.stalledTime);
        m_timer.async_wait([self = shared_from_this()](const tError& error) {
            if (!error && self->m_isWriting)
                self->close(cTryAgainLater, "nothing was taken");
        });
    }

    void end()
    {
        if (!m_session)
            return;
        const auto session = std::move(m_session);
        m_isOpen = false;
        m_timer.cancel();
        m_closing.cancel();
        tError ignored;
        beast::get_lowest_layer(m_socket).close(ignored);
        session->onEnd();
    }

    websocket::stream<tcp::socket, false> m_socket;  // without permessage-deflate
    asio::steady_timer m_timer, m_closing;
    beast::flat_buffer m_buffer;
    std::shared_ptr<iWebSocketSession> m_session;
    tFrame m_frame;
    bool m_isOpen = false, m_isWriting = false, m_isClosing = false;
    unsigned m_closeCode = 0;
    std::string m_closeReason;
    tSteady::time_point m_secondBegan{};
    std::size_t m_messages = 0;
};

// Lets a session reach its WebSocket from any thread, however long either lives.
class tPeer : public iWebSocketPeer
{
public:
    explicit tPeer(asio::io_context& io) : m_io(io) {}

    void connect(const std::shared_ptr<tWebSocket>& socket) { m_socket = socket; }
    void wake() override
    {
        if (m_isWoken.exchange(true))
            return;
        asio::post(m_io, [self = m_self.lock()] {
            self->m_isWoken = false;
            if (const auto socket = self->m_socket.lock())
                socket->pump();
        });
    }
    void close(unsigned code, const std::string& reason) override
    {
        asio::post(m_io, [self = m_self.lock(), code, reason] {
            if (const auto socket = self->m_socket.lock())
                socket->close(code, reason);
        });
    }
    static std::shared_ptr<tPeer> make(asio::io_context& io)
    {
        auto peer = std::make_shared<tPeer>(io);
        peer->m_self = peer;
        return peer;
    }

private:
    asio::io_context& m_io;
    std::atomic<bool> m_isWoken{false};
    std::weak_ptr<tPeer> m_self;
    std::weak_ptr<tWebSocket> m_socket;  // used on the thread of the sockets alone
};

class tConnection : public iOpen, public std::enable_shared_from_this<tConnection>
{
public:
    tConnection(tShared& shared, tcp::socket&& socket) : iOpen(shared), m_socket(std::move(socket)), m_timer(shared.io)
    {
        tError ignored;
        m_socket.set_option(tcp::no_delay(true), ignored);
    }

    void awaitRequest()
    {
        if (m_buffer.size() != 0)
            return readHead();
        limit(m_shared.limits.idleTime);
        m_socket.async_wait(tcp::socket::wait_read, [self = shared_from_this()](const tError& error) {
            if (!error && !self->m_isLate)
                self->readHead();
        });
    }

    void refuse(unsigned status)
    {
        m_answer = m_shared.handler.refuse(status);
        m_isLast = true;
        send();
    }

    void shut() override
    {
        tError ignored;
        m_timer.cancel();
        m_socket.close(ignored);
    }

private:
    using tParser = http::request_parser<http::string_body>;

    // Interrupts the operation under way after that time.
    void limit(std::chrono::milliseconds time)
    {
        m_isLate = false;
        m_timer.expires_after(time);
        m_timer.async_wait([weak = weak_from_this()](const tError& error) {
            const auto self = weak.lock();
            if (error || !self)
                return;
            self->m_isLate = true;
            tError ignored;
            self->m_socket.cancel(ignored);
        });
    }

    void readHead()
    {
        m_parser.emplace();
        m_parser->header_limit(static_cast<std::uint32_t>(m_shared.limits.headBytes));
        m_parser->body_limit(m_shared.limits.bodyBytes);
        limit(m_shared.limits.headTime);
        http::async_read_header(m_socket, m_buffer, *m_parser,
                                [self = shared_from_this()](const tError& error, std::size_t) {
                                    if (error)
                                        return self->readFailed(error);
                                    self->readBody();
                                });
    }

    void readBody()
    {
        limit(m_shared.limits.headTime);
        http::async_read(m_socket, m_buffer, *m_parser, [self = shared_from_this()](const tError& error, std::size_t) {
            if (error)
                return self->readFailed(error);
            self->m_timer.cancel();
            self->dispatch();
        });
    }

    void readFailed(const tError& error)
    {
        if (m_shared.stopping || error == http::error::end_of_stream || error == http::error::partial_message)
            return shut();
        if (m_isLate)
            return refuse(408);
        if (error == http::error::header_limit || error == http::error::buffer_overflow)
            return refuse(431);
        if (error == http::error::body_limit)
            return refuse(413);
        if (error.category() == http::make_error_code(http::error::bad_target).category())
            return refuse(400);
        shut();
    }

    void dispatch()
    {
        m_request = m_parser->release();
        const auto request = std::make_shared<tHttpRequest>(plain(m_request, m_socket));
        m_isLast = !m_request.keep_alive();
        if (request->isUpgrade)
            return dispatchUpgrade(request);
        // The last owner of a connection is on the thread of the sockets: a worker passes its share on.
        m_shared.workers.post([self = shared_from_this(), request]() mutable {
            asio::io_context& io = self->m_shared.io;
            auto answer = std::make_shared<tHttpAnswer>(self->m_shared.handler.answer(*request));
            asio::post(io, [self = std::move(self), answer] {
                self->m_answer = std::move(*answer);
                self->send();
            });
        });
    }

    void dispatchUpgrade(const std::shared_ptr<tHttpRequest>& request)
    {
        const auto peer = tPeer::make(m_shared.io);
        m_shared.workers.post([self = shared_from_this(), request, peer]() mutable {
            asio::io_context& io = self->m_shared.io;
            auto granted = std::make_shared<tUpgrade>(self->m_shared.handler.upgrade(*request, peer));
            asio::post(io, [self = std::move(self), granted, peer] { self->upgrade(*granted, *peer); });
        });
    }

    void upgrade(tUpgrade& granted, tPeer& peer)
    {
        if (granted.session && !m_shared.stopping && m_socket.is_open())
        {
            const auto viewer = std::make_shared<tWebSocket>(m_shared, std::move(m_socket));
            peer.connect(viewer);
            return viewer->accept(m_request, granted, granted.refusal.headers);
        }
        if (granted.session)
            return granted.session->onEnd();
        m_answer = std::move(granted.refusal);
        m_isLast = true;
        send();
    }

    void send()
    {
        if (!m_socket.is_open())
            return;
        m_response = {};
        m_response.version(11);
        m_response.result(m_answer.status);
        for (const auto& [name, value] : m_answer.headers)
            m_response.set(name, value);
        m_response.keep_alive(!m_isLast);
        limit(m_shared.limits.idleTime);
        if (m_answer.stream)
            return sendHead();
        if (m_request.method() != http::verb::head)
            m_response.body() = std::move(m_answer.body);
        m_response.prepare_payload();
        http::async_write(m_socket, m_response,
                          [self = shared_from_this()](const tError& error, std::size_t) { self->sent(error); });
    }

    void sendHead()
    {
        if (m_answer.length)
            m_response.content_length(*m_answer.length);
        else
            m_response.chunked(true);
        m_serializer.emplace(m_response);
        http::async_write_header(m_socket, *m_serializer,
                                 [self = shared_from_this()](const tError& error, std::size_t) {
                                     if (error)
                                         return self->sent(error);
                                     self->m_left = self->m_answer.length;
                                     self->pull();
                                 });
    }

    // A body may wait for the disk.
    void pull()
    {
        m_timer.cancel();
        m_shared.workers.post([self = shared_from_this()]() mutable {
            asio::io_context& io = self->m_shared.io;
            bool isMore = false, isBroken = false;
            try
            {
                isMore = self->m_answer.stream->next(self->m_chunk);
            }
            catch (const std::exception&)
            {
                isBroken = true;
            }
            asio::post(io, [self = std::move(self), isMore, isBroken] {
                if (isBroken)
                    return self->shut();
                isMore ? self->sendChunk() : self->endChunks();
            });
        });
    }

    void sendChunk()
    {
        if (!m_socket.is_open())
            return;
        limit(m_shared.limits.idleTime);
        const auto next = [self = shared_from_this()](const tError& error, std::size_t) {
            if (error)
                return self->sent(error);
            self->pull();
        };
        if (!m_left)
            return asio::async_write(m_socket, http::make_chunk(asio::buffer(m_chunk)), next);
        if (m_chunk.size() > *m_left)
            return shut();
        *m_left -= m_chunk.size();
        asio::async_write(m_socket, asio::buffer(m_chunk), next);
    }

    void endChunks()
    {
        m_answer.stream.reset();
        if (m_left && *m_left != 0)
            return shut();  // the file was cut meanwhile
        if (m_left)
            return sent({});
        limit(m_shared.limits.idleTime);
        asio::async_write(m_socket, http::make_chunk_last(),
                          [self = shared_from_this()](const tError& error, std::size_t) { self->sent(error); });
    }

    void sent(const tError& error)
    {
        m_timer.cancel();
        m_serializer.reset();
        m_answer = {};
        if (error || m_shared.stopping)
            return shut();
        if (!m_isLast)
            return awaitRequest();
        tError ignored;
        m_socket.shutdown(tcp::socket::shutdown_send, ignored);
        limit(cLingering);
        linger();
    }

    // A reset would take the answer from a client that is still sending.
    void linger()
    {
        m_buffer.clear();
        m_socket.async_read_some(m_buffer.prepare(4096), [self = shared_from_this()](const tError& error, std::size_t) {
            if (error || self->m_isLate)
                return self->shut();
            self->linger();
        });
    }

    tcp::socket m_socket;
    asio::steady_timer m_timer;
    beast::flat_buffer m_buffer;
    std::optional<tParser> m_parser;
    tBeastRequest m_request;
    tHttpAnswer m_answer;
    http::response<http::string_body> m_response;
    std::optional<http::response_serializer<http::string_body>> m_serializer;
    std::optional<std::uint64_t> m_left;  // of a stream with a length
    std::string m_chunk;
    bool m_isLate = false, m_isLast = false;
};
}  // namespace

class tHttpServer::tPrivate
{
public:
    tPrivate(const std::string& address, std::uint16_t port, iHttpHandler& handler, const tHttpLimits& limits)
        : m_shared(handler, limits), m_acceptor(m_shared.io), m_pause(m_shared.io)
    {
        listen(tcp::endpoint(asio::ip::make_address(address), port));
    }
    ~tPrivate()
    {
        try
        {
            stop(std::chrono::hours(1));
        }
        catch (...)
        {
            std::terminate();  // its thread runs on
        }
    }

    std::uint16_t port() const { return m_port; }
    void start()
    {
        accept();
        m_thread = std::thread([this] { m_shared.io.run(); });
    }

    bool stop(std::chrono::milliseconds atMost)
    {
        if (!m_thread.joinable())
            return m_isIdle;
        shutAll();
        m_isIdle = m_shared.workers.stop(atMost);
        shutAll();  // what has come from the workers meanwhile
        m_shared.io.stop();
        m_thread.join();
        return m_isIdle;
    }

private:
    void listen(const tcp::endpoint& endpoint)
    {
        tError error;
        m_acceptor.open(endpoint.protocol(), error);
        if (!error)
            m_acceptor.set_option(asio::socket_base::reuse_address(true), error);
        if (!error)
            m_acceptor.bind(endpoint, error);
        if (!error)
            m_acceptor.listen(asio::socket_base::max_listen_connections, error);
        if (error)
            throw recordings::tFailure("cannot listen on " + textOf(endpoint) + ": " + error.message() +
                                       (error == asio::error::address_in_use ? "; choose another --listen" : ""));
        m_port = m_acceptor.local_endpoint().port();
    }

    void accept()
    {
        m_acceptor.async_accept([this](const tError& error, tcp::socket socket) {
            if (m_shared.stopping)
                return;
            if (error)
                return acceptLater();  // no descriptor is free
            take(std::move(socket));
            accept();
        });
    }

    void take(tcp::socket&& socket)
    {
        const std::size_t open = m_shared.open.size(), most = m_shared.limits.connections;
        if (open >= most + cRefusedAtOnce)
            return;  // closes it
        const auto connection = std::make_shared<tConnection>(m_shared, std::move(socket));
        open >= most ? connection->refuse(503) : connection->awaitRequest();
    }

    void acceptLater()
    {
        m_pause.expires_after(std::chrono::milliseconds(100));
        m_pause.async_wait([this](const tError& error) {
            if (!error)
                accept();
        });
    }

    void shutAll()
    {
        std::promise<void> done;
        asio::post(m_shared.io, [&] {
            shutOpen();
            done.set_value();
        });
        done.get_future().wait();
    }

    void shutOpen()
    {
        m_shared.stopping = true;
        tError ignored;
        m_acceptor.close(ignored);
        m_pause.cancel();
        const auto open = m_shared.open;
        for (iClosable* const one : open)
            if (m_shared.open.contains(one))
                one->shut();
    }

    tShared m_shared;
    asio::executor_work_guard<asio::io_context::executor_type> m_work{m_shared.io.get_executor()};
    tcp::acceptor m_acceptor;
    asio::steady_timer m_pause;
    std::uint16_t m_port = 0;
    bool m_isIdle = true;
    std::thread m_thread;
};

tHttpServer::tHttpServer(const std::string& address, std::uint16_t port, iHttpHandler& handler,
                         const tHttpLimits& limits)
    : d(std::make_unique<tPrivate>(address, port, handler, limits))
{}

tHttpServer::~tHttpServer() = default;

std::uint16_t tHttpServer::port() const
{
    return d->port();
}

void tHttpServer::start()
{
    d->start();
}

bool tHttpServer::stop(std::chrono::milliseconds atMost)
{
    return d->stop(atMost);
}

bool isAddress(const std::string& text)
{
    tError error;
    (void)asio::ip::make_address(text, error);
    return !error;
}

bool isLoopback(const std::string& address)
{
    tError error;
    const auto parsed = asio::ip::make_address(address, error);
    return !error && parsed.is_loopback();
}
}  // namespace server
