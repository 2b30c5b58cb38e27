// tPollThread: one thread that sleeps in poll() on a socket and can be ended at any moment.
//
// Threads  start() and stop() belong to the owner, stopping() to anyone, wait() to the body.
// Wake-up  an eventfd lies beside the socket in every poll: a stop is seen at once, however busy the socket is, and
//          nothing ever wakes up to look whether it should end.
// Signals  are blocked on the thread: the application's handlers run on the application's threads.
#ifndef KESTOVA_NET_POLLTHREAD_H
#define KESTOVA_NET_POLLTHREAD_H

#include <atomic>
#include <functional>
#include <thread>

#include "common/descriptor.h"

namespace net
{
class tPollThread
{
public:
    enum class eWake
    {
        eReady,    // the descriptor can be read, or has an error to report
        eTimeout,  // the time is over
        eStopped
    };

    tPollThread() = default;
    ~tPollThread() { stop(); }
    tPollThread(const tPollThread&) = delete;
    tPollThread& operator=(const tPollThread&) = delete;

    // Runs `body` on a new thread of that name (at most 15 characters). False, with errno set, if the system refuses.
    bool start(const char* name, std::function<void()> body);
    // Ends the wait, and joins. From the thread itself it only lets the thread go: the body ends by itself.
    void stop();
    bool stopping() const { return m_stop.load(std::memory_order_acquire); }
    bool isSelf() const { return m_thread.get_id() == std::this_thread::get_id(); }

    // Body: sleeps until `fd` has something, the time is over (-1: no limit) or the stop. A fd of -1 only sleeps.
    eWake wait(int fd, int timeout_ms = -1);

private:
    std::atomic<bool> m_stop{false};
    tDescriptor m_wakeUp;
    std::thread m_thread;
};
}  // namespace net

#endif
