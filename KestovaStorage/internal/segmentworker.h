// tSegmentWorker: a queue of byte strings, and the thread that hands them one by one, in order, to a handler.
//
// Shapes   the thread takes all that is queued at once, walks it in place and gives the blocks back: a steady stream
//          allocates nothing. The queue has no bound; what a backlog needed is freed as it is walked.
// Threads  start() and stop() belong to the owner, everything else to any thread, the handler included. The handler
//          runs without a lock.
// Wake-up  only a sleeping thread is notified: while it is awake a push costs a lock and a copy.
// Errors   std::bad_alloc leaves push() before its callback was called; nothing is queued then.
#ifndef KESTOVA_INTERNAL_SEGMENTWORKER_H
#define KESTOVA_INTERNAL_SEGMENTWORKER_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>

#include "KestovaStorage/internal/segmentfifo.h"
#include "KestovaUtils/internal/workerthread.h"

class tSegmentWorker
{
public:
    // `waiting` is the number of segments behind this one.
    using tHandler = std::function<void(const char* bytes, std::size_t len, std::size_t waiting)>;

    void start(tHandler handler)
    {
        m_handler = std::move(handler);
        m_worker.start([this] { run(); });
    }
    // Waits for the handler's call under way; what is queued is not handed over any more.
    void stop() { m_worker.stop(); }
    bool isSelf() const { return m_worker.isSelf(); }

    // Queues `len` bytes, which fill(place) writes under the lock: what it counts agrees with the queue's order.
    template <typename tFill>
    void push(std::size_t len, tFill fill)
    {
        auto held = m_worker.lock();
        fill(m_fifo.push(len, 0));
        wakeAfterPush(held);
    }
    // Queues a block that was filled outside the lock; queued() is called under it.
    template <typename tQueued>
    void push(std::unique_ptr<tSegmentBlock> block, tQueued queued)
    {
        auto held = m_worker.lock();
        m_fifo.push(std::move(block));
        queued();
        wakeAfterPush(held);
    }
    // Calls change() under the lock, between two pushes.
    template <typename tChange>
    void between(tChange change)
    {
        const auto held = m_worker.lock();
        change();
    }
    // Forgets what waits; a call under way goes on.
    void discard();
    // Waits until all that was queued before the call has been handled; false after `timeout`, or at once when called
    // from the handler.
    bool waitIdle(std::chrono::milliseconds timeout);

private:
    void wakeAfterPush(tWorker::tLock& held)
    {
        m_queued.store(m_fifo.count(), std::memory_order_relaxed);
        const bool asleep = std::exchange(m_asleep, false);
        held.unlock();
        if (asleep)
            m_worker.notify();
    }
    void run();
    bool take(tSegmentBlocks& batch);
    void walk(const tSegmentBlock& block);
    void giveBack(std::unique_ptr<tSegmentBlock> block);

    tHandler m_handler;
    tSegmentFifo m_fifo;                       // guarded by m_worker.lock(), as all without a mark of its own
    std::atomic<std::size_t> m_queued{0};      // m_fifo.count(), changed under the lock, read by the thread without
    std::atomic<std::uint64_t> m_discards{0};  // changed under the lock, read by the thread without
    std::uint64_t m_handled = 0;               // segments handled since construction
    std::size_t m_inHand = 0;                  // segments taken and not yet handled
    unsigned m_idleWaiters = 0;
    bool m_asleep = false;              // the thread waits and nobody has notified it yet
    std::uint64_t m_batchDiscards = 0;  // the thread's own: m_discards when the batch was taken
    std::size_t m_batchLeft = 0;        // the thread's own: segments of the batch not yet handed over
    tWorker m_worker;
};

#endif
