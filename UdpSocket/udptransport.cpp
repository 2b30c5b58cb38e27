#include "UdpSocket/transport.h"

namespace net
{
namespace
{
class tUdpSource final : public iDatagramSource
{
public:
    tUdpSource(iDatagramListener* listener, const NetAddress& group, std::uint32_t localIp, int recBuffSize)
        : m_receiver(listener, localIp, group, recBuffSize)
    {}
    bool joined() const override { return m_receiver.valid(); }
    tUdpReceiverCounters counters() const override { return m_receiver.counters(); }

private:
    tDatagramReceiver m_receiver;
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
        return std::make_unique<tUdpSource>(listener, group, localIp, recBuffSize);
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
