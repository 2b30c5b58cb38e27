#include "UdpSocket/datagramreceiver.h"

#include <utility>

#include "UdpSocket/internal/groupsocket.h"

namespace net
{
class KESTOVA_HIDDEN tDatagramReceiver::tDatagramReceiverPrivate final : public tGroupSocket
{
public:
    using tGroupSocket::tGroupSocket;
};

tDatagramReceiver::tDatagramReceiver(iDatagramListener* listener, uint32_t localIp, const NetAddress& group,
                                     int recBuffSize)
    : d(new tDatagramReceiverPrivate(listener, localIp, group, recBuffSize))
{}

tDatagramReceiver::tDatagramReceiver(std::unique_ptr<iDatagramListener> listener, uint32_t localIp,
                                     const NetAddress& group, int recBuffSize)
    : d(new tDatagramReceiverPrivate(std::move(listener), localIp, group, recBuffSize))
{}

tDatagramReceiver::~tDatagramReceiver()
{
    d->destroy();
}

bool tDatagramReceiver::valid() const
{
    return d->valid();
}

int tDatagramReceiver::receiveBufferSize() const
{
    return d->receiveBufferSize();
}

tUdpReceiverCounters tDatagramReceiver::counters() const
{
    return d->counters();
}
}  // namespace net
