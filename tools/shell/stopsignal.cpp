#include "tools/shell/stopsignal.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "KestovaRecordings/failure.h"

namespace tool
{
using recordings::tFailure;

namespace
{
std::atomic<int> s_signals{0};
std::atomic<int> s_event{-1};

void onSignal(int)
{
    const int error = errno;
    ++s_signals;
    const std::uint64_t one = 1;
    // A signal handler cannot handle a failure; the counter of the event descriptor never fills up.
    [[maybe_unused]] const auto written = write(s_event, &one, sizeof(one));
    errno = error;
}

void install(int signal)
{
    struct sigaction action
    {};
    action.sa_handler = onSignal;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
}

bool isIgnored(int signal)
{
    struct sigaction action
    {};
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}
}  // namespace

tStopSignal::tStopSignal()
{
    s_signals = 0;
    s_event = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (s_event == -1)
        throw tFailure("cannot make an event descriptor: too many open files");
    install(SIGINT);
    install(SIGTERM);
    if (!isIgnored(SIGHUP))  // ignored under nohup: the command continues without a terminal
        install(SIGHUP);
}

tStopSignal::~tStopSignal()
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        std::signal(signal, SIG_IGN);  // a late Ctrl-C must not change the exit status
    close(s_event.exchange(-1));
}

bool tStopSignal::requested() const
{
    return s_signals > 0;
}

bool tStopSignal::requestedAgain() const
{
    return s_signals > 1;
}

bool tStopSignal::wait(std::chrono::milliseconds period) const
{
    const auto deadline = std::chrono::steady_clock::now() + period;
    for (;;)
    {
        if (requested())
            return true;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0)
            return false;
        pollfd event{s_event, POLLIN, 0};
        poll(&event, 1, static_cast<int>(left.count()));
    }
}
}  // namespace tool
