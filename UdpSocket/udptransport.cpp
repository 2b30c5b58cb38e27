#include "UdpSocket/transport.h"

#include <chrono>
#include <utility>

#include "UdpSocket/internal/groupreceiver.h"

namespace net
{
namespace
{
using namespace std::chrono_literals;

// The longest that datagrams gather for a recorder.
constexpr auto cLongestPause = 10ms;

class tUdpSource final : public iDatagramSource
{
public:
    tUdpSource(const tSourceRequest& request, std::shared_ptr<tReceiveLoop> loop, std::uint32_t localIp,
               int recBuffSize)
        : m_receiver(std::make_unique<tGroupSocket>(request.listener, request.group), std::move(loop), localIp,
                     recBuffSize)
    {}
    bool joined() const override { return m_receiver.valid(); }
    tUdpReceiverCounters counters() const override { return m_receiver.counters(); }

private:
    tGroupReceiver m_receiver;
};

class tUdpSink final : public iDatagramSink
{
public:
    tUdpSink(const NetAddress& destination, std::uint32_t localIp) : m_sender(destination, localIp, 0)
    {
        m_sender.setMulticastLoop(true);
    }
    bool send(const char* data, int len) override { return m_sender.sendData(data, len); }

private:
    UdpSender m_sender;
};

class tUdpTransport final : public iTransport
{
public:
    // While the interface has no address, the kernel would join groups on another one.
    bool needsLocalAddress() const override { return true; }
    std::unique_ptr<iDatagramSource> openSource(iDatagramListener* listener, const NetAddress& group,
                                                std::uint32_t localIp, int recBuffSize) override
    {
        return std::make_unique<tUdpSource>(tSourceRequest{listener, group},
                                            std::make_shared<tReceiveLoop>(tGathering::tDuration(0)), localIp,
                                            recBuffSize);
    }
    std::vector<std::unique_ptr<iDatagramSource>> openSources(const std::vector<tSourceRequest>& requests,
                                                              std::uint32_t localIp, int recBuffSize) override
    {
        const auto loop = std::make_shared<tReceiveLoop>(cLongestPause);
        std::vector<std::unique_ptr<iDatagramSource>> sources;
        sources.reserve(requests.size());
        for (const tSourceRequest& request : requests)
            sources.push_back(std::make_unique<tUdpSource>(request, loop, localIp, recBuffSize));
        return sources;
    }
    std::unique_ptr<iDatagramSink> openSink(const NetAddress& destination, std::uint32_t localIp) override
    {
        return std::make_unique<tUdpSink>(destination, localIp);
    }
};
}  // namespace

iTransport& udpTransport()  // transports.cpp lists it
{
    static iTransport& s_transport = *new tUdpTransport;  // never destroyed: threads may outlive statics
    return s_transport;
}
}  // namespace net
