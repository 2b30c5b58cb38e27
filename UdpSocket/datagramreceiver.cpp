#include "UdpSocket/datagramreceiver.h"

#include <utility>

#include "UdpSocket/internal/groupreceiver.h"

namespace net
{
class KESTOVA_HIDDEN tDatagramReceiver::tDatagramReceiverPrivate final : public tGroupReceiver
{
public:
    // A loop of its own, which delivers at once.
    tDatagramReceiverPrivate(std::unique_ptr<tGroupSocket> socket, std::uint32_t localIp, int recBuffSize)
        : tGroupReceiver(std::move(socket), std::make_shared<tReceiveLoop>(tGathering::tDuration(0)), localIp,
                         recBuffSize)
    {}
};

tDatagramReceiver::tDatagramReceiver(iDatagramListener* listener, uint32_t localIp, const NetAddress& group,
                                     int recBuffSize)
    : d(new tDatagramReceiverPrivate(std::make_unique<tGroupSocket>(listener, group), localIp, recBuffSize))
{}

tDatagramReceiver::tDatagramReceiver(std::unique_ptr<iDatagramListener> listener, uint32_t localIp,
                                     const NetAddress& group, int recBuffSize)
    : d(new tDatagramReceiverPrivate(std::make_unique<tGroupSocket>(std::move(listener), group), localIp, recBuffSize))
{}

tDatagramReceiver::~tDatagramReceiver()
{
    delete d;
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
