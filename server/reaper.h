// tReaper: ends what may take a while to end, in the background.
#ifndef KESTOVA_SERVER_REAPER_H
#define KESTOVA_SERVER_REAPER_H

#include <deque>
#include <functional>
#include <utility>

#include "common/worker.h"

namespace server
{
// post() from any thread. What was posted is done at the latest by the destructor.
class tReaper
{
public:
    tReaper()
    {
        m_worker.start([this] { run(); });
    }
    ~tReaper()
    {
        m_worker.stop();
        for (auto& work : m_queue)
            work();
    }
    tReaper(const tReaper&) = delete;
    tReaper& operator=(const tReaper&) = delete;

    void post(std::function<void()> work)
    {
        m_worker.wake([&] { m_queue.push_back(std::move(work)); });
    }

private:
    void run()
    {
        tWorker::tLock held = m_worker.lock();
        while (m_worker.wait(held, [this] { return !m_queue.empty(); }))
        {
            {
                const auto work = std::move(m_queue.front());
                m_queue.pop_front();
                held.unlock();
                work();
            }
            held.lock();
        }
    }

    std::deque<std::function<void()>> m_queue;  // guarded by the lock of m_worker
    tWorker m_worker;
};
}  // namespace server

#endif
