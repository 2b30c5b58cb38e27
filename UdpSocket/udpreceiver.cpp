#include "UdpSocket/udpsocket.h"

#include <arpa/inet.h>
#include <memory>

#include "UdpSocket/datagramreceiver.h"

namespace net
{
namespace
{
// Returns the sender's address as text; formats it again only for another sender.
class tSenderText
{
public:
    const char* of(const in_addr& sender)
    {
        if (sender.s_addr != m_address.s_addr)
        {
            m_address = sender;
            ::inet_ntop(AF_INET, &m_address, m_text, sizeof m_text);
        }
        return m_text;
    }

private:
    in_addr m_address{};
    char m_text[INET_ADDRSTRLEN] = "0.0.0.0";
};

// Forwards each datagram with its addresses as texts.
class tTextListener : public iDatagramListener
{
public:
    tTextListener(iUdpDataListener* listener, const NetAddress& group)
        : m_listener(listener), m_groupText(transAddr(group.ip)), m_groupPort(NtoHs(group.port))
    {}
    void OnDatagram(const tReceivedDatagram& datagram) override
    {
        m_listener->OnUdpGroupDataReceived(m_senderText.of({datagram.from.ip}), NtoHs(datagram.from.port),
                                           m_groupText.c_str(), m_groupPort, datagram.data, datagram.len);
    }

private:
    iUdpDataListener* const m_listener;
    const std::string m_groupText;
    const int m_groupPort;
    tSenderText m_senderText;  // receive thread
};
}  // namespace

class KESTOVA_HIDDEN UdpReceiver::tUdpReceiverPrivate final : public tDatagramReceiver
{
public:
    tUdpReceiverPrivate(iUdpDataListener* listener, uint32_t localIp, const NetAddress& group, int recBuffSize)
        : tDatagramReceiver(std::make_unique<tTextListener>(listener, group), localIp, group, recBuffSize)
    {}
};

UdpReceiver::UdpReceiver(iUdpDataListener* listener, uint32_t localIp, const NetAddress& group, int recBuffSize)
    : d(new tUdpReceiverPrivate(listener, localIp, group, recBuffSize))
{}

UdpReceiver::~UdpReceiver()
{
    delete d;
}

bool UdpReceiver::valid() const
{
    return d->valid();
}

int UdpReceiver::receiveBufferSize() const
{
    return d->receiveBufferSize();
}

tUdpReceiverCounters UdpReceiver::counters() const
{
    return d->counters();
}
}  // namespace net
