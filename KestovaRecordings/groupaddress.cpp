#include "KestovaRecordings/groupaddress.h"

#include <charconv>
#include <stdexcept>

#include "UdpSocket/udpsocket.h"

namespace recordings
{
NetAddress parseGroup(const std::string& text)
{
    const std::size_t colon = text.find(':');
    const std::uint32_t ip = net::transAddr(text.substr(0, colon).c_str());
    unsigned short port = 0;
    bool valid = ip != 0 && colon != std::string::npos;
    if (valid)
    {
        const char* const end = text.data() + text.size();
        const auto [last, error] = std::from_chars(text.data() + colon + 1, end, port);
        valid = error == std::errc() && last == end && port != 0;
    }
    if (!valid)
        throw std::invalid_argument("'" + text + "' is no group: write ADDRESS:PORT, such as 239.17.0.1:6001");
    return {ip, net::HtoNs(port)};
}
}  // namespace recordings
