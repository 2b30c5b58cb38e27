// Socket calls that receiver and sender share.
#ifndef KESTOVA_NET_UDPADDRESS_H
#define KESTOVA_NET_UDPADDRESS_H

#include <cerrno>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>

#include "UdpSocket/consoleprint.h"
#include "UdpSocket/udpsocket.h"

namespace net
{
inline sockaddr_in socketAddress(std::uint32_t ip, std::uint16_t networkPort)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = ip;
    address.sin_port = networkPort;
    return address;
}

inline const sockaddr* asSockaddr(const sockaddr_in& address)
{
    return reinterpret_cast<const sockaddr*>(&address);  // the cast that the socket interface demands
}

inline bool isMulticast(std::uint32_t ip)
{
    return IN_MULTICAST(ntohl(ip));
}

template <typename tValue>
bool setOption(int socket, int level, int name, const tValue& value)
{
    return ::setsockopt(socket, level, name, &value, sizeof value) == 0;
}

// "239.17.0.1:6001 on 192.168.1.5"
inline std::string describe(const NetAddress& address, std::uint32_t localIp)
{
    return transAddr(address.ip) + ":" + std::to_string(NtoHs(address.port)) + " on " +
           (localIp == 0 ? std::string("any interface") : transAddr(localIp));
}

// Writes one line on standard error: `what`, the address, the reason in errno.
inline void reportFailure(const char* what, const NetAddress& address, std::uint32_t localIp)
{
    const int reason = errno;
    const std::string line = std::string(what) + " " + describe(address, localIp);
    errno = reason;
    Kestova::console::printSystemError(line.c_str());
}
}  // namespace net

#endif
