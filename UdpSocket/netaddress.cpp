#include <arpa/inet.h>

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

uint16_t HtoNs(uint16_t port)
{
    return htons(port);
}

uint16_t NtoHs(uint16_t port)
{
    return ntohs(port);
}
}  // namespace net
