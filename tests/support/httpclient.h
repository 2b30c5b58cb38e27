// A client of HTTP and WebSockets on a plain socket, which says exactly what a test wants said.
#ifndef KESTOVA_TESTS_HTTPCLIENT_H
#define KESTOVA_TESTS_HTTPCLIENT_H

#include <algorithm>
#include <arpa/inet.h>
#include <cctype>
#include <cerrno>
#include <map>
#include <netinet/in.h>
#include <optional>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>

struct tHttpResponse
{
    int status = 0;                              // 0: the connection ended without an answer
    std::map<std::string, std::string> headers;  // names in lower case
    std::string body;
};

class tHttpClient
{
public:
    static constexpr int cLimitMs = 60'000;

    explicit tHttpClient(std::uint16_t port) : m_port(port), m_socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(port);
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (::connect(m_socket, reinterpret_cast<const sockaddr*>(&to), sizeof(to)) != 0)
            throw std::system_error(errno, std::generic_category(), "connect");
    }
    ~tHttpClient() { ::close(m_socket); }
    tHttpClient(const tHttpClient&) = delete;
    tHttpClient& operator=(const tHttpClient&) = delete;

    std::string host() const { return "127.0.0.1:" + std::to_string(m_port); }
    void send(const std::string& bytes) const
    {
        for (std::size_t sent = 0; sent < bytes.size();)
        {
            const ssize_t now = ::send(m_socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (now <= 0)
                return;  // refused meanwhile
            sent += static_cast<std::size_t>(now);
        }
    }
    // `headers` are whole lines; a Host is added unless there is one.
    tHttpResponse ask(const std::string& method, const std::string& target, const std::string& headers = "",
                      const std::string& body = "")
    {
        const bool isHosted = headers.find("Host:") != std::string::npos;
        std::string text =
            method + ' ' + target + " HTTP/1.1\r\n" + (isHosted ? "" : "Host: " + host() + "\r\n") + headers;
        if (!body.empty())
            text += "Content-Length: " + std::to_string(body.size()) + "\r\n";
        send(text + "\r\n" + body);
        return response();
    }
    tHttpResponse post(const std::string& target, const std::string& body)
    {
        return ask("POST", target, "X-Kestova: 1\r\nContent-Type: application/json\r\n", body);
    }
    tHttpResponse response()
    {
        tHttpResponse result;
        const std::string head = until("\r\n\r\n");
        if (head.size() < 12)
            return result;
        result.status = std::stoi(head.substr(9, 3));
        for (std::size_t at = head.find("\r\n") + 2; at < head.size() - 2; at = head.find("\r\n", at) + 2)
        {
            std::string name = head.substr(at, head.find(": ", at) - at);
            std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::tolower(c); });
            const std::size_t value = head.find(": ", at) + 2;
            result.headers[name] = head.substr(value, head.find("\r\n", at) - value);
        }
        if (result.headers.contains("content-length"))
            result.body = exactly(std::stoul(result.headers["content-length"]));
        else if (result.headers.contains("transfer-encoding"))
            while (const std::size_t size = std::stoul("0" + until("\r\n"), nullptr, 16))
                result.body += exactly(size + 2).substr(0, size);
        return result;
    }
    // Whether the other end has closed within the limit.
    bool isClosed()
    {
        while (more())
        {}
        return m_isClosed;
    }
    // Takes so many bytes, fewer at the end.
    std::string exactly(std::size_t size)
    {
        while (m_buffer.size() < size && more())
        {}
        return taken(std::min(size, m_buffer.size()));
    }

private:
    std::string until(const std::string& mark)
    {
        std::size_t at = 0;
        while ((at = m_buffer.find(mark)) == std::string::npos)
            if (!more())
                return {};
        return taken(at + mark.size());
    }
    std::string taken(std::size_t size)
    {
        std::string bytes = m_buffer.substr(0, size);
        m_buffer.erase(0, size);
        return bytes;
    }
    bool more()
    {
        pollfd readable{m_socket, POLLIN, 0};
        if (::poll(&readable, 1, cLimitMs) <= 0)
            return false;
        char bytes[65536];
        const ssize_t got = ::recv(m_socket, bytes, sizeof(bytes), 0);
        m_isClosed = got <= 0;
        m_buffer.append(bytes, got > 0 ? static_cast<std::size_t>(got) : 0);
        return got > 0;
    }

    const std::uint16_t m_port;
    const int m_socket;
    std::string m_buffer;
    bool m_isClosed = false;
};

// A page.
class tWebSocketClient
{
public:
    explicit tWebSocketClient(std::uint16_t port, const std::string& headers = "") : m_http(port)
    {
        m_http.send("GET /api/v1/live HTTP/1.1\r\nHost: " + m_http.host() + "\r\nOrigin: http://" + m_http.host() +
                    "\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
                    "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n" +
                    headers + "\r\n");
        m_answer = m_http.response();
    }
    const tHttpResponse& answer() const { return m_answer; }

    void say(const std::string& text) { frame(1, text); }
    void frame(unsigned opcode, const std::string& bytes)
    {
        std::string head{static_cast<char>(0x80 | opcode)};
        if (bytes.size() < 126)
            head += static_cast<char>(0x80 | bytes.size());
        else
            head +=
                {static_cast<char>(0x80 | 126), static_cast<char>(bytes.size() >> 8), static_cast<char>(bytes.size())};
        m_http.send(head + std::string(4, '\0') + bytes);  // a mask of zeros
    }
    struct tMessage
    {
        unsigned opcode = 0;  // 1 text, 2 binary, 8 close; 0 for the end of the connection
        std::string bytes;
    };
    tMessage next()
    {
        const std::string head = m_http.exactly(2);
        if (head.size() < 2)
            return {};
        std::size_t size = static_cast<unsigned char>(head[1]);
        for (std::size_t length = size == 126 ? 2 : size == 127 ? 8 : 0; length > 0;)
        {
            size = 0;
            for (const char c : m_http.exactly(std::exchange(length, 0)))
                size = size << 8 | static_cast<unsigned char>(c);
        }
        return {static_cast<unsigned char>(head[0]) & 15U, m_http.exactly(size)};
    }

private:
    tHttpClient m_http;
    tHttpResponse m_answer;
};

#endif
