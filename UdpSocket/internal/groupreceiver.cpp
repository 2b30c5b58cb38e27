#include "UdpSocket/internal/groupreceiver.h"

#include <utility>

#include "UdpSocket/internal/udpaddress.h"

namespace net
{
tGroupReceiver::tGroupReceiver(std::unique_ptr<tGroupSocket> socket, std::shared_ptr<tReceiveLoop> loop,
                               std::uint32_t localIp, int recBuffSize)
    : m_socket(std::move(socket)), m_loop(std::move(loop))
{
    m_valid = m_socket->open(localIp, recBuffSize) && m_loop->start() && m_loop->add(*m_socket);
    if (m_valid)
        return;
    reportFailure("UdpReceiver: cannot receive", m_socket->group(), localIp);
    m_socket->close();
}

tGroupReceiver::~tGroupReceiver()
{
    if (m_valid)
        m_loop->remove(std::move(m_socket));
}
}  // namespace net
