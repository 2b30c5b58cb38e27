// tWorkers: threads for what may wait for a disk.
#ifndef KESTOVA_SERVER_WORKERS_H
#define KESTOVA_SERVER_WORKERS_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace server
{
// Any thread.
class tWorkers
{
public:
    explicit tWorkers(std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i)
            m_threads.emplace_back([this] { run(); });
    }
    ~tWorkers()
    {
        stop(std::chrono::hours(1));
        for (std::thread& thread : m_threads)
            thread.join();
    }
    void post(std::function<void()> work)
    {
        const std::lock_guard lock(m_mutex);
        if (!m_stopped)
            m_queue.push_back(std::move(work));
        m_changed.notify_one();
    }
    // What waits is never done; it is dropped by the destructor. Returns whether nothing is under way any more.
    bool stop(std::chrono::milliseconds atMost)
    {
        std::unique_lock lock(m_mutex);
        m_stopped = true;
        m_changed.notify_all();
        return m_changed.wait_for(lock, atMost, [this] { return m_busy == 0; });
    }

private:
    void run()
    {
        std::unique_lock lock(m_mutex);
        for (;;)
        {
            m_changed.wait(lock, [this] { return m_stopped || !m_queue.empty(); });
            if (m_stopped)
                return;
            auto work = std::move(m_queue.front());
            m_queue.pop_front();
            ++m_busy;
            lock.unlock();
            work();
            work = nullptr;
            lock.lock();
            --m_busy;
            m_changed.notify_all();
        }
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<std::function<void()>> m_queue;  // guarded by m_mutex
    bool m_stopped = false;                     // guarded by m_mutex
    std::size_t m_busy = 0;                     // guarded by m_mutex
    std::vector<std::thread> m_threads;
};
}  // namespace server

#endif
