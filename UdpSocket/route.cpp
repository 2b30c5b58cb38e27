#include <netinet/in.h>
#include <sys/socket.h>

#include "UdpSocket/internal/udpaddress.h"
#include "UdpSocket/udpsocket.h"
#include "common/descriptor.h"

namespace net
{
// Connecting a datagram socket looks the route up.
uint32_t routeAddress(const NetAddress& destination)
{
    const tDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const sockaddr_in to = socketAddress(destination.ip, destination.port);
    sockaddr_in from{};
    socklen_t width = sizeof from;
    if (!socket.valid() || ::connect(socket.get(), asSockaddr(to), sizeof to) != 0 ||
        ::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&from), &width) != 0)
        return 0;
    return from.sin_addr.s_addr;
}
}  // namespace net
