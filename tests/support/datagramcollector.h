// tDatagramCollector: keeps what a receiver delivers. testGroup: a multicast group that no other test uses.
// tGroupListener: both.
#ifndef KESTOVA_TESTS_DATAGRAMCOLLECTOR_H
#define KESTOVA_TESTS_DATAGRAMCOLLECTOR_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <unistd.h>

#include "UdpSocket/udpsocket.h"
#include "support/addresstext.h"
#include "support/collector.h"
#include "support/waituntil.h"

struct tReceivedDatagram
{
    std::string from, group, payload;  // addresses as "239.17.0.1:6001"
};

struct tDatagramCollector : net::iUdpDataListener, tCollector<tReceivedDatagram>
{
    void OnUdpGroupDataReceived(const char* fromAddr, int fromPort, const char* groupAddr, int groupPort,
                                const char* data, int len) override
    {
        add({fromAddr + (":" + std::to_string(fromPort)), groupAddr + (":" + std::to_string(groupPort)),
             std::string(data, static_cast<std::size_t>(len))});
    }
};

inline std::uint32_t loopbackIp()
{
    return net::transAddr("127.0.0.1");
}

// A new group at every call, different in every process that runs at the same time. Loopback only.
inline NetAddress testGroup()
{
    static std::atomic<unsigned int> s_next{1};
    const auto process = static_cast<unsigned int>(::getpid());
    const std::string group = "239." + std::to_string(192 + process / 65536 % 32) + "." +
                              std::to_string(process / 256 % 256) + "." + std::to_string(process % 256);
    const unsigned int port = 21000 + (process * 64 + s_next++) % 10000;
    return {net::transAddr(group.c_str()), net::HtoNs(static_cast<std::uint16_t>(port))};
}

// What is heard on a group of its own.
struct tGroupListener : tDatagramCollector
{
    bool heard(std::size_t number) const
    {
        return waitUntil([&] { return count() >= number; });
    }
    const NetAddress group = testGroup();
    const net::UdpReceiver receiver{this, loopbackIp(), group, 0};
};

#endif
