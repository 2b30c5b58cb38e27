// tAddressListener: keeps what the radar client tells about the local address.
#ifndef KESTOVA_TESTS_ADDRESSLISTENER_H
#define KESTOVA_TESTS_ADDRESSLISTENER_H

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

#include "KestovaUtils/multiradarclient.h"
#include "UdpSocket/udpsocket.h"

class tAddressListener : public iMultiRadarCheckerListener
{
public:
    tAddressListener() = default;
    ~tAddressListener() override { MultiRadarClient::getInstance()->removeListener(this); }
    tAddressListener(const tAddressListener&) = delete;
    tAddressListener& operator=(const tAddressListener&) = delete;

    void OnLocalIpChanged(unsigned int localIp) override
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_told.push_back(net::transAddr(localIp));
    }
    std::vector<std::string> told() const
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_told;
    }
    std::size_t count() const { return told().size(); }

private:
    mutable std::mutex m_mutex;
    std::vector<std::string> m_told;  // guarded by m_mutex; "0.0.0.0" for no address
};

#endif
