#include "UdpSocket/transport.h"

namespace net
{
// The transports, each in a file of its own. The first of the list is the default.
iTransport& udpTransport();

namespace
{
constexpr iTransport& (*cTransports[])() = {udpTransport};
}

iTransport& defaultTransport()
{
    return cTransports[0]();
}
}  // namespace net
