// tWorker: one thread; how it starts, sleeps, wakes and ends.
//
// Threads  start(), stop() and destruction belong to the owner; the rest to any thread. stop() from the worker itself
//          only clears the run flag; the owner's stop() joins.
// Locks    one mutex guards the run flag and whatever the owner's body waits for. The flag changes under it, so one
//          notification is enough and none is lost.
// Place    worker members come last in their class: they stop before the members that they use are destroyed.
#ifndef KESTOVA_COMMON_WORKER_H
#define KESTOVA_COMMON_WORKER_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>

class tWorker
{
public:
    using tLock = std::unique_lock<std::mutex>;
    using tClock = std::chrono::steady_clock;

    tWorker() = default;
    ~tWorker() { stop(); }
    tWorker(const tWorker&) = delete;
    tWorker& operator=(const tWorker&) = delete;

    // Runs `body` on a new thread and returns once it runs. Returns false while a former run is not yet joined; throws
    // std::system_error if no thread can be started.
    bool start(std::function<void()> body)
    {
        if (m_thread.joinable())
            return false;
        {
            const tLock guard(m_mutex);
            m_run = true;
            m_started = false;
        }
        startThread(std::move(body));
        tLock guard(m_mutex);
        m_cond.wait(guard, [this] { return m_started; });
        return true;
    }

    // Clears the run flag, wakes the body, and joins it unless called from the body.
    void stop()
    {
        wake([this] { m_run = false; });
        if (!isSelf() && m_thread.joinable())
            m_thread.join();
    }

    bool running() const { return m_run; }
    bool isSelf() const { return m_self.load() == std::this_thread::get_id(); }  // called on the worker's own thread

    // The lock under which the owner reads and changes what the body waits for.
    tLock lock() const { return tLock(m_mutex); }

    // The same if every owner holds it for less time than falling asleep takes. Tries for some microseconds, ever more
    // rarely: the owner then takes it several times in a row, which is faster for both than taking turns.
    tLock lockBriefly() const
    {
        constexpr int cMostPauses = 128, cYields = 4;
        tLock held(m_mutex, std::try_to_lock);
        for (int pauses = 16; !held && pauses <= cMostPauses; pauses *= 2)
        {
            for (int i = 0; i < pauses; ++i)
                pause();
            (void)held.try_lock();
        }
        for (int i = 0; !held && i < cYields; ++i)  // the owner may have been suspended
        {
            std::this_thread::yield();
            (void)held.try_lock();
        }
        if (!held)
            held.lock();
        return held;
    }

    // Changes what the body waits for, under the lock, and wakes every waiter.
    template <typename tChange>
    void wake(tChange change)
    {
        {
            const tLock guard(m_mutex);
            change();
        }
        m_cond.notify_all();
    }
    void notify() { m_cond.notify_all(); }

    // Body: waits for `ready` or the stop. Returns false once stopped.
    template <typename tReady>
    bool wait(tLock& held, tReady ready)
    {
        m_cond.wait(held, [&] { return !m_run || ready(); });
        return m_run;
    }

    // Any thread: waits for `ready`, `deadline` or the stop. Returns the value of `ready`.
    template <typename tReady>
    bool waitUntil(tLock& held, tClock::time_point deadline, tReady ready)
    {
        m_cond.wait_until(held, deadline, [&] { return !m_run || ready(); });
        return ready();
    }

    // Body: sleeps for `period`. Returns false once stopped.
    bool sleepFor(tClock::duration period)
    {
        tLock held = lock();
        m_cond.wait_for(held, period, [this] { return !m_run; });
        return m_run;
    }

private:
    static void pause()
    {
#if defined(__x86_64__)
        __builtin_ia32_pause();
#endif
    }
    void startThread(std::function<void()> body)
    try
    {
        m_thread = std::thread([this, work = std::move(body)] {
            m_self = std::this_thread::get_id();
            wake([this] { m_started = true; });
            work();
            m_self = std::thread::id();  // another thread may get this number
        });
    }
    catch (...)
    {
        m_run = false;
        throw;
    }

    mutable std::mutex m_mutex;
    std::condition_variable m_cond;
    std::thread m_thread;
    std::atomic<bool> m_run{false};  // changed under m_mutex
    bool m_started = false;          // guarded by m_mutex
    std::atomic<std::thread::id> m_self{};
};

#endif
