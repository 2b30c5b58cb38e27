#include <arpa/inet.h>
#include <charconv>
#include <system_error>

#include "UdpSocket/udpsocket.h"

namespace net
{
uint32_t transAddr(const char* dotted)
{
    in_addr address{};
    if (dotted == nullptr || ::inet_pton(AF_INET, dotted, &address) != 1)
        return 0;
    return address.s_addr;
}

std::string transAddr(uint32_t ip)
{
    const in_addr address{ip};
    char text[INET_ADDRSTRLEN] = "";
    ::inet_ntop(AF_INET, &address, text, sizeof text);
    return text;
}

NetAddress parseAddress(const std::string& text)
{
    const std::size_t colon = text.find(':');
    const std::string dotted = text.substr(0, colon);
    // A NUL inside would end the dotted text early.
    NetAddress address{dotted.find('\0') == std::string::npos ? transAddr(dotted.c_str()) : 0, 0};
    if (colon == std::string::npos)
        return address;
    const char* const end = text.data() + text.size();
    uint16_t port = 0;
    const auto [last, error] = std::from_chars(text.data() + colon + 1, end, port);
    if (error == std::errc() && last == end)
        address.port = HtoNs(port);
    return address;
}

uint16_t HtoNs(uint16_t port)
{
    return htons(port);
}

uint16_t NtoHs(uint16_t port)
{
    return ntohs(port);
}
}  // namespace net
