// tServiceManager: what a service reports to the manager that started it (systemd), by sd_notify's protocol: one
// datagram of "NAME=VALUE" lines to the Unix socket that NOTIFY_SOCKET names.
//
// Errors   without a manager, or when it cannot be reached, nothing happens.
// Threads  one at a time. Time is passed in.
#ifndef KESTOVA_TOOLS_SHELL_SERVICEMANAGER_H
#define KESTOVA_TOOLS_SHELL_SERVICEMANAGER_H

#include <chrono>
#include <cstdint>
#include <string>

#include "common/descriptor.h"

namespace tool
{
// tWatchdog: when a manager that restarts a service which hangs hears that it does not.
class tWatchdog
{
public:
    using tTime = std::chrono::steady_clock::time_point;

    // `period` is the time after which the manager restarts the service; 0 for one that does not.
    explicit tWatchdog(std::chrono::microseconds period) : m_pause(period / 4) {}

    // Takes what a worker has done so far and all that it was given. Returns whether to feed: a quarter of the period
    // after the last time, if the worker has nothing to do or has advanced since then.
    bool feeds(std::uint64_t done, std::uint64_t given, tTime now);

private:
    const std::chrono::microseconds m_pause;
    tTime m_fed{};
    std::uint64_t m_doneThen = 0;
};

class tServiceManager
{
public:
    tServiceManager();  // from NOTIFY_SOCKET, WATCHDOG_USEC and WATCHDOG_PID

    bool present() const { return m_socket.valid(); }
    void ready() const { send("READY=1"); }
    void stopping() const { send("STOPPING=1"); }
    void status(const std::string& line) const { send("STATUS=" + line); }
    // Feeds the manager's watchdog, see tWatchdog.
    void advance(std::uint64_t done, std::uint64_t given, tWatchdog::tTime now);

private:
    void send(const std::string& state) const;

    tDescriptor m_socket;  // connected
    tWatchdog m_watchdog;
};
}  // namespace tool

#endif
