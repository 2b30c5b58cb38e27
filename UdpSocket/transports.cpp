#include "UdpSocket/transport.h"

namespace net
{
// The transports, each in a file of its own. The first of the list is the default.
iTransport& udpTransport();

namespace
{
constexpr iTransport& (*cTransports[])() = {udpTransport};
}

// For a transport that has no thread to share: each source has its own.
std::vector<std::unique_ptr<iDatagramSource>> iTransport::openSources(const std::vector<tSourceRequest>& requests,
                                                                      uint32_t localIp, int recBuffSize)
{
    std::vector<std::unique_ptr<iDatagramSource>> sources;
    sources.reserve(requests.size());
    for (const tSourceRequest& request : requests)
        sources.push_back(openSource(request.listener, request.group, localIp, recBuffSize));
    return sources;
}

iTransport& defaultTransport()
{
    return cTransports[0]();
}
}  // namespace net
