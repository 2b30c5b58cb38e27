// tInterfaceWatcher: the IPv4 address of one network interface, followed as it changes.
//
// Choice   an interface by name or by one of its addresses. Until follow() chooses one, the interface of the default
//          route, or the loopback interface without such a route.
// Changes  come from the kernel through rtnetlink; nothing is polled.
// Threads  any thread may call. start() starts one thread, which waits for changes.
// Errors   a query to the kernel that fails is reported once through perror; the address then stays as it was.
//
// For the libraries of this project; not installed.
#ifndef KESTOVA_INTERFACEWATCHER_H
#define KESTOVA_INTERFACEWATCHER_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "UdpSocket/kestovaapi.h"

namespace net
{
class KESTOVA_API tInterfaceWatcher
{
public:
    // Receives the address (as net::transAddr returns it; 0 while there is none). Called with the watcher's lock held,
    // which keeps changes in order: it must be short and must not call the watcher.
    using tOnChange = std::function<void(std::uint32_t localIp)>;

    tInterfaceWatcher();
    ~tInterfaceWatcher();  // returns at once; no call follows
    tInterfaceWatcher(const tInterfaceWatcher&) = delete;
    tInterfaceWatcher& operator=(const tInterfaceWatcher&) = delete;

    // Chooses the interface. Returns false and changes nothing for text that is neither an existing interface nor a
    // dotted address. An address that no interface has is reported as it is, and again when an interface takes it.
    bool follow(const std::string& nameOrAddress);

    // Starts watching. Calls `onChange` with the address before it returns (on the calling thread), then at every
    // change (on the watcher's thread, or from inside follow). Reports the same address again when it moves to another
    // interface, because the kernel drops the memberships of the first one. Returns false if the thread cannot be
    // started; the present address and changes by follow() are reported all the same. A second call returns false.
    bool start(tOnChange onChange);

private:
    class tInterfaceWatcherPrivate;
    std::unique_ptr<tInterfaceWatcherPrivate> d;
};
}  // namespace net

#endif
