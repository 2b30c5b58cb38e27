#include "tools/shell/servicemanager.h"

#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>

namespace tool
{
namespace
{
std::string_view environment(const char* name)
{
    const char* const value = std::getenv(name);
    return value != nullptr ? value : std::string_view();
}

// Returns 0 for text that is no number.
std::uint64_t numberIn(const char* name)
{
    const std::string_view text = environment(name);
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() ? value : 0;
}

// Variables may have been inherited from a parent that is the service.
std::chrono::microseconds watchdogPeriod()
{
    const bool isMine =
        environment("WATCHDOG_PID").empty() || numberIn("WATCHDOG_PID") == static_cast<std::uint64_t>(getpid());
    return std::chrono::microseconds(isMine ? static_cast<std::int64_t>(numberIn("WATCHDOG_USEC")) : 0);
}

// A path, or a name in the abstract namespace that begins with "@".
tDescriptor connectedTo(std::string_view name)
{
    sockaddr_un address{};
    if (name.size() < 2 || name.size() >= sizeof address.sun_path || (name[0] != '/' && name[0] != '@'))
        return tDescriptor();
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, name.data(), name.size());
    if (name[0] == '@')
        address.sun_path[0] = '\0';
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    tDescriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socket.valid() || ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), length) != 0)
        return tDescriptor();
    return socket;
}
}  // namespace

bool tWatchdog::feeds(std::uint64_t done, std::uint64_t given, tTime now)
{
    const bool isDue = m_pause.count() > 0 && (m_fed == tTime{} || now - m_fed >= m_pause);
    if (!isDue || (done == m_doneThen && done != given))
        return false;
    m_fed = now;
    m_doneThen = done;
    return true;
}

tServiceManager::tServiceManager() : m_socket(connectedTo(environment("NOTIFY_SOCKET"))), m_watchdog(watchdogPeriod())
{}

void tServiceManager::advance(std::uint64_t done, std::uint64_t given, tWatchdog::tTime now)
{
    if (present() && m_watchdog.feeds(done, given, now))
        send("WATCHDOG=1");
}

void tServiceManager::send(const std::string& state) const
{
    if (present())
        (void)::send(m_socket.get(), state.data(), state.size(), MSG_NOSIGNAL);
}
}  // namespace tool
