// tPollThread: one thread that sleeps in poll() on a socket and can be stopped at any moment.
//
// Threads  the owner calls start() and stop(), any thread stopping(), the body wait().
// Wake-up  every poll includes an eventfd: stop() ends the wait at once, however busy the socket is, and the thread
//          never wakes up only to check for a stop.
// Signals  blocked on the thread: the application's handlers run on the application's threads.
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
        eReady,    // the descriptor is readable, or reports an error
        eTimeout,  // the timeout has passed
        eStopped
    };

    tPollThread() = default;
    ~tPollThread() { stop(); }
    tPollThread(const tPollThread&) = delete;
    tPollThread& operator=(const tPollThread&) = delete;

    // Makes wakeUp() valid; start() does it otherwise. Returns false, with errno set, if that fails.
    bool prepare();
    // Runs `body` on a new thread of that name (at most 15 characters). Returns false, with errno set, if that fails.
    bool start(const char* name, std::function<void()> body);
    // Ends the wait and joins. Called on the thread itself it only detaches the thread: the body ends by itself.
    void stop();
    // Makes wakeUp() readable until takeWakeUp(). Any thread.
    void wake() const;
    bool stopping() const { return m_stop.load(std::memory_order_acquire); }
    bool isSelf() const { return m_thread.get_id() == std::this_thread::get_id(); }

    // Body: sleeps until `fd` is readable, the timeout has passed (-1: no limit) or stop() is called. A fd of -1 only
    // sleeps.
    eWake wait(int fd, int timeout_ms = -1);

    // For a body that waits in a call of its own: a descriptor that is readable after wake() and stop().
    int wakeUp() const { return m_wakeUp.get(); }
    void takeWakeUp() const;

private:
    std::atomic<bool> m_stop{false};
    tDescriptor m_wakeUp;
    std::thread m_thread;
};
}  // namespace net

#endif
