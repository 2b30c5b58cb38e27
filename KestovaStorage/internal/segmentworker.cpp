#include "KestovaStorage/internal/segmentworker.h"

void tSegmentWorker::run()
{
    tSegmentBlocks batch;
    while (take(batch))
    {
        for (auto& block : batch)
        {
            walk(*block);
            giveBack(std::move(block));
        }
        batch.clear();
    }
}

bool tSegmentWorker::take(tSegmentBlocks& batch)
{
    auto held = m_worker.lock();
    // Set anew before every sleep: a discard may have emptied the queue between a notification and the waking.
    const bool running = m_worker.wait(held, [this] { return !(m_asleep = m_fifo.empty()); });
    m_asleep = false;
    if (!running)
        return false;
    m_inHand = m_batchLeft = m_fifo.count();
    m_batchDiscards = m_discards;
    m_fifo.take(batch);
    m_queued.store(0, std::memory_order_relaxed);
    return true;
}

void tSegmentWorker::walk(const tSegmentBlock& block)
{
    const char* bytes = block.bytes();
    for (std::size_t i = 0; i < block.count(); ++i)
    {
        if (!m_worker.running() || m_discards != m_batchDiscards)
            return;
        const auto len = static_cast<std::size_t>(block.entry(i).len);
        --m_batchLeft;
        m_handler(bytes, len, m_batchLeft + m_queued.load(std::memory_order_relaxed));
        bytes += len;
    }
}

void tSegmentWorker::giveBack(std::unique_ptr<tSegmentBlock> block)
{
    tSegmentBlocks used;
    const std::size_t count = block->count();
    used.push_back(std::move(block));
    bool waited = false;
    {
        const auto held = m_worker.lock();
        m_handled += count;
        m_inHand -= count;
        m_fifo.recycle(used);
        waited = m_idleWaiters != 0;
    }
    if (waited)
        m_worker.notify();
}

void tSegmentWorker::discard()
{
    tSegmentBlocks forgotten;  // freed outside the lock
    const auto held = m_worker.lock();
    m_fifo.take(forgotten);
    m_queued.store(0, std::memory_order_relaxed);
    ++m_discards;
}

bool tSegmentWorker::waitIdle(std::chrono::milliseconds timeout)
{
    if (isSelf())
        return false;
    auto held = m_worker.lock();
    const std::uint64_t wanted = m_handled + m_inHand + m_fifo.count();
    ++m_idleWaiters;
    const bool idle = m_worker.waitUntil(held, tWorker::tClock::now() + timeout,
                                         [&] { return m_handled >= wanted || (m_inHand == 0 && m_fifo.empty()); });
    --m_idleWaiters;
    return idle;
}
