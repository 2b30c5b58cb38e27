#include "KestovaStorage/internal/replay/revolutionbarrier.h"

namespace Kestova
{
tRevolutionBarrier& tRevolutionBarrier::shared()
{
    static tRevolutionBarrier* const s_shared = new tRevolutionBarrier;  // loops may outlive static objects
    return *s_shared;
}

void tRevolutionBarrier::enter()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    ++m_turning;
}

void tRevolutionBarrier::leave()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    --m_turning;
    if (m_arrived != 0 && m_arrived >= m_turning)
        release();
}

void tRevolutionBarrier::arrive(const std::atomic<bool>& turning)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    const std::uint64_t generation = m_generation;
    const auto isOver = [&] { return m_generation != generation || !turning; };
    if (++m_arrived >= m_turning)
    {
        if (!m_allReady.wait_for(lock, cPause, isOver))
            release();
    }
    else
        m_allReady.wait(lock, isOver);
    if (m_generation == generation)
        --m_arrived;  // stopped while waiting
}

void tRevolutionBarrier::wake()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
    }
    m_allReady.notify_all();
}

void tRevolutionBarrier::release()
{
    m_arrived = 0;
    ++m_generation;
    m_allReady.notify_all();
}
}  // namespace Kestova
