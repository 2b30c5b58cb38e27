#include "KestovaStorage/internal/package/deliveryworker.h"

#include "KestovaStorage/internal/buffers/segmentsource.h"

void tDeliveryWorker::start(tHandler handler)
{
    m_handler = std::move(handler);
    m_worker.start([this] { run(); });
}

void tDeliveryWorker::run()
{
    while (waitForMore())
        walk();
}

tDeliveryWorker::tBatch::~tBatch()
{
    m_worker.m_queue.publish();
    const bool asleep = std::exchange(m_worker.m_asleep, false);
    m_held.unlock();
    if (asleep)
        m_worker.m_worker.notify();
}

void tDeliveryWorker::queue(std::size_t len, std::uint64_t, std::uint16_t, iSegmentSource& package)
{
    if (len < cLongSegment)
    {
        tBatch(*this).push(len, [&](char* place) {
            package.write(place);
            package.queued(place);
        });
        return;
    }
    auto block = tWalkQueue::makeBlock(len);
    char* const place = block->reserve(len);
    package.write(place);
    tBatch batch(*this);
    batch.push(std::move(block));
    package.queued(place);
}

// Delivers the published segments of the current block.
void tDeliveryWorker::walk()
{
    const char* bytes = nullptr;
    std::size_t len = 0;
    while (m_worker.running() && m_queue.next(bytes, len))
    {
        ++m_walked;
        if (m_walked > m_discarded.load(std::memory_order_acquire))
            m_handler(bytes, len, static_cast<std::size_t>(m_queue.published() - m_walked));
    }
}

// At the end of the walk: waits for more segments. Returns false once stopped.
bool tDeliveryWorker::waitForMore()
{
    if (lookForMore())
        return m_worker.running();
    auto held = m_worker.lock();
    // Evaluated after every wake-up, so that m_asleep is right before every sleep.
    const bool running = m_worker.wait(held, [this] { return !(m_asleep = !m_queue.nextBlock()); });
    m_asleep = false;
    return running;
}

bool tDeliveryWorker::lookForMore()
{
    tWalkQueue::tBlocks surplus;  // freed without the lock
    const auto held = m_worker.lock();
    m_handled = m_walked;
    if (m_idleWaiters != 0)
        m_worker.notify();
    const bool more = m_queue.nextBlock();
    if (!more)
        surplus = m_queue.takeSurplus();
    return more;
}

void tDeliveryWorker::discard()
{
    const auto held = m_worker.lock();
    m_discarded.store(m_queue.published(), std::memory_order_release);
}

bool tDeliveryWorker::waitIdle(std::chrono::milliseconds timeout)
{
    if (isSelf())
        return false;
    auto held = m_worker.lock();
    const std::uint64_t wanted = m_queue.published();
    ++m_idleWaiters;
    const bool idle = m_worker.waitUntil(held, tWorker::tClock::now() + timeout, [&] { return m_handled >= wanted; });
    --m_idleWaiters;
    return idle;
}
