#include "KestovaRecordings/groupaddress.h"

#include <stdexcept>

#include "UdpSocket/udpsocket.h"

namespace recordings
{
NetAddress parseGroup(const std::string& text)
{
    const NetAddress group = net::parseAddress(text);
    if (group.ip == 0 || group.port == 0)
        throw std::invalid_argument("'" + text + "' is no group: write ADDRESS:PORT, such as 239.17.0.1:6001");
    return group;
}
}  // namespace recordings
