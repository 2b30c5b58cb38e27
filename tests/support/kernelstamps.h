// waitForKernelStamps: the kernel begins to stamp datagrams a moment after the first socket of the machine asks for it.
#ifndef KESTOVA_TESTS_KERNELSTAMPS_H
#define KESTOVA_TESTS_KERNELSTAMPS_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>

#include "UdpSocket/datagramreceiver.h"
#include "support/datagramcollector.h"
#include "support/waituntil.h"

inline std::uint64_t systemTime_ms()
{
    using namespace std::chrono;
    return static_cast<std::uint64_t>(duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count());
}

// Returns once a datagram that waits in the kernel has the time of its arrival, not that of its reading. Needs a socket
// that stays open, else the kernel stops to stamp when it returns.
inline bool waitForKernelStamps()
{
    struct tHeld : net::iDatagramListener
    {
        void OnDatagram(const net::tReceivedDatagram& got) override
        {
            arrived_ms = got.arrived_ms;
            ++calls;
            waitUntil([&] { return go.load(); });
        }
        std::atomic<bool> go{false};
        std::atomic<int> calls{0};
        std::atomic<std::uint64_t> arrived_ms{0};
    };
    return waitUntil([] {
        tHeld held;
        const NetAddress group = testGroup();
        const net::tDatagramReceiver receiver(&held, loopbackIp(), group, 0);
        net::UdpSender sender(group, loopbackIp(), 0);
        sender.sendData("held", 4);
        const bool first = waitUntil([&] { return held.calls == 1; });
        sender.sendData("waits", 5);
        const std::uint64_t sent_ms = systemTime_ms();
        std::this_thread::sleep_for(std::chrono::milliseconds(5));  // the time of reading is another one
        held.go = true;
        return first && waitUntil([&] { return held.calls == 2; }) && held.arrived_ms <= sent_ms;
    });
}

#endif
