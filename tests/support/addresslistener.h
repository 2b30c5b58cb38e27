// tAddressListener: keeps the local addresses that the radar client reports, "0.0.0.0" for none.
#ifndef KESTOVA_TESTS_ADDRESSLISTENER_H
#define KESTOVA_TESTS_ADDRESSLISTENER_H

#include <string>

#include "KestovaUtils/multiradarclient.h"
#include "UdpSocket/udpsocket.h"
#include "support/collector.h"

struct tAddressListener : iMultiRadarCheckerListener, tCollector<std::string>
{
    ~tAddressListener() override { MultiRadarClient::getInstance()->removeListener(this); }
    void OnLocalIpChanged(unsigned int localIp) override { add(net::transAddr(localIp)); }
};

#endif
