#include "UdpSocket/internal/pollthread.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <system_error>

namespace net
{
namespace
{
// A new thread inherits the mask of the thread that starts it.
class tSignalsBlocked
{
public:
    tSignalsBlocked()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }
    ~tSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    tSignalsBlocked(const tSignalsBlocked&) = delete;
    tSignalsBlocked& operator=(const tSignalsBlocked&) = delete;

private:
    sigset_t m_before{};
};
}  // namespace

bool tPollThread::prepare()
{
    if (!m_wakeUp.valid())
        m_wakeUp = tDescriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    return m_wakeUp.valid();
}

bool tPollThread::start(const char* name, std::function<void()> body)
{
    if (!prepare())
        return false;
    try
    {
        const tSignalsBlocked blocked;
        m_thread = std::thread(std::move(body));
    }
    catch (const std::system_error& refused)
    {
        errno = refused.code().value();
        return false;
    }
    pthread_setname_np(m_thread.native_handle(), name);
    return true;
}

void tPollThread::stop()
{
    m_stop.store(true, std::memory_order_release);
    if (!m_thread.joinable())
        return;
    if (isSelf())
    {
        m_thread.detach();
        return;
    }
    wake();
    m_thread.join();
}

void tPollThread::wake() const
{
    const std::uint64_t once = 1;
    // The write to an eventfd fails only if its counter is full, and then it is readable anyway.
    [[maybe_unused]] const ssize_t written = ::write(m_wakeUp.get(), &once, sizeof once);
}

void tPollThread::takeWakeUp() const
{
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t taken = ::read(m_wakeUp.get(), &count, sizeof count);  // does not wait
}

tPollThread::eWake tPollThread::wait(int fd, int timeout_ms)
{
    pollfd waiting[2] = {{fd, POLLIN, 0}, {m_wakeUp.get(), POLLIN, 0}};
    while (!stopping())
    {
        const int ready = ::poll(waiting, 2, timeout_ms);
        if (stopping())
            break;
        if (ready > 0)
            return eWake::eReady;
        if (ready == 0 || (errno != EINTR && errno != EAGAIN && errno != ENOMEM))
            return eWake::eTimeout;
    }
    return eWake::eStopped;
}
}  // namespace net
