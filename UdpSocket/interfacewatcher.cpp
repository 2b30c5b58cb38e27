#include "UdpSocket/interfacewatcher.h"

#include <mutex>

#include "UdpSocket/consoleprint.h"
#include "UdpSocket/internal/interfacetable.h"
#include "UdpSocket/internal/pollthread.h"
#include "UdpSocket/internal/rtnetlink.h"

namespace net
{
class KESTOVA_HIDDEN tInterfaceWatcher::tInterfaceWatcherPrivate
{
public:
    tInterfaceWatcherPrivate()
    {
        if (!m_netlink.valid())
            Kestova::console::printSystemError("tInterfaceWatcher: cannot ask for the network interfaces");
    }

    bool follow(const std::string& nameOrAddress);
    bool start(tOnChange onChange);

private:
    void watchUntilStopped();
    tInterfaceTable interfaces(const tInterfaceChoice& choice);
    void refresh();

    std::mutex m_mutex;
    tRtnetlink m_netlink;       // guarded by m_mutex, but for its changes() descriptor
    tInterfaceTable m_last;     // guarded by m_mutex: the last answer of the kernel
    tInterfaceChoice m_choice;  // guarded by m_mutex
    tLocalAddress m_notified;   // guarded by m_mutex
    tOnChange m_onChange;       // guarded by m_mutex
    bool m_reported = false;    // guarded by m_mutex
    tPollThread m_thread;
};

bool tInterfaceWatcher::tInterfaceWatcherPrivate::follow(const std::string& nameOrAddress)
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto choice = choiceNamed(interfaces({nameOrAddress, 0}), nameOrAddress);
    if (!choice)
        return false;
    m_choice = *choice;
    refresh();
    return true;
}

bool tInterfaceWatcher::tInterfaceWatcherPrivate::start(tOnChange onChange)
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (m_onChange)
        return false;
    m_onChange = std::move(onChange);
    m_notified = {0, -1};
    refresh();
    if (m_notified.linkIndex == -1)
        m_onChange(0);  // the listener needs a first report without an address, too
    return m_netlink.valid() && m_thread.start("kestova-ifaddr", [this] { watchUntilStopped(); });
}

void tInterfaceWatcher::tInterfaceWatcherPrivate::watchUntilStopped()
{
    while (m_thread.wait(m_netlink.changes()) != tPollThread::eWake::eStopped)
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_netlink.discardChanges();
        refresh();
    }
}

// Returns the answer of the kernel; its last answer if it fails. m_mutex is held.
tInterfaceTable tInterfaceWatcher::tInterfaceWatcherPrivate::interfaces(const tInterfaceChoice& choice)
{
    auto table = m_netlink.valid() ? m_netlink.interfaces(choice.isDefault()) : std::nullopt;
    if (table)
        m_last = std::move(*table);
    else if (m_netlink.valid() && !m_reported)
    {
        m_reported = true;
        Kestova::console::printSystemError("tInterfaceWatcher: the network interfaces cannot be listed");
    }
    return m_last;
}

// m_mutex is held.
void tInterfaceWatcher::tInterfaceWatcherPrivate::refresh()
{
    const tInterfaceTable table = interfaces(m_choice);
    m_choice = settled(table, m_choice);
    const tLocalAddress now = chosenAddress(table, m_choice);
    if (!mustNotify(m_notified, now))
        return;
    m_notified = now;
    if (m_onChange)
        m_onChange(now.ip);
}

tInterfaceWatcher::tInterfaceWatcher() : d(new tInterfaceWatcherPrivate) {}

tInterfaceWatcher::~tInterfaceWatcher() = default;

bool tInterfaceWatcher::follow(const std::string& nameOrAddress)
{
    return d->follow(nameOrAddress);
}

bool tInterfaceWatcher::start(tOnChange onChange)
{
    return d->start(std::move(onChange));
}
}  // namespace net
