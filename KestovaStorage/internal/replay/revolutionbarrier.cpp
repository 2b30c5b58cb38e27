#include "KestovaStorage/internal/replay/revolutionbarrier.h"

namespace Kestova
{
tZeroSync& tZeroSync::shared()
{
    static tZeroSync* const s_shared = new tZeroSync;  // loops may end as late as the process does
    return *s_shared;
}

void tZeroSync::enter()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    ++m_turning;
}

void tZeroSync::leave()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    --m_turning;
    if (m_arrived != 0 && m_arrived >= m_turning)
        release();
}

void tZeroSync::arrive(const std::atomic<bool>& turning)
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

void tZeroSync::wake()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
    }
    m_allReady.notify_all();
}

void tZeroSync::release()
{
    m_arrived = 0;
    ++m_generation;
    m_allReady.notify_all();
}
}  // namespace Kestova
