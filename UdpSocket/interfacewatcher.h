// tInterfaceWatcher: the IPv4 address of one network interface, followed as it changes.
//
// Choice   an interface by name, or by one of its addresses, or (until one is chosen) the interface of the default
//          route, or the loopback interface if there is none.
// Changes  come from the kernel through rtnetlink; nothing is polled.
// Threads  any thread may call; one thread of the watcher's own waits for changes once start() was called.
// Errors   a kernel that does not answer is reported once through perror; the address then stays as it was.
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
    // Gets the address (as net::transAddr returns it; 0 while there is none). Called with the watcher's lock held, so
    // that changes come in order: it must be short and must not call the watcher.
    using tOnChange = std::function<void(std::uint32_t localIp)>;

    tInterfaceWatcher();
    ~tInterfaceWatcher();  // ends at once; no call follows
    tInterfaceWatcher(const tInterfaceWatcher&) = delete;
    tInterfaceWatcher& operator=(const tInterfaceWatcher&) = delete;

    // Chooses the interface. False, and nothing changed, for text that is neither an existing interface nor a dotted
    // address. An address that no interface has is reported as it is, and again when an interface takes it.
    bool follow(const std::string& nameOrAddress);

    // Begins to watch: `onChange` is called with the address before this returns (from this thread), then at every
    // change (from the watcher's thread, or from inside follow). The same address is reported again when another
    // interface has it, since groups joined on the first one are gone. False if the thread cannot be started; the
    // present address and changes by follow() are reported all the same. A second call is refused.
    bool start(tOnChange onChange);

private:
    class tInterfaceWatcherPrivate;
    std::unique_ptr<tInterfaceWatcherPrivate> d;
};
}  // namespace net

#endif
