// tDeliveryWorker: a queue of byte strings, and the thread that hands them one by one, in order, to a handler.
//
// Shapes   the thread reads segments in place and takes the lock only at the end of a block or of the queue. The queue
//          has no bound; the memory of a backlog is freed once it is walked.
// Threads  start() and stop() belong to the owner, everything else to any thread, the handler included. The handler
//          runs without a lock.
// Wake-up  only a sleeping thread is notified: while it is awake a push costs an uncontended lock and a copy.
// Errors   push() throws std::bad_alloc before it calls its callback; nothing is queued then.
#ifndef KESTOVA_STORAGE_PACKAGE_DELIVERYWORKER_H
#define KESTOVA_STORAGE_PACKAGE_DELIVERYWORKER_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>

#include "KestovaStorage/internal/buffers/walkqueue.h"
#include "KestovaStorage/internal/package/packagebuilder.h"
#include "common/worker.h"

class tDeliveryWorker : public iPackageSink
{
public:
    static constexpr std::size_t cLongSegment = 128 * 1024;  // longer than any datagram; from here on copied unlocked

    // `waiting` is the number of segments behind this one.
    using tHandler = std::function<void(const char* bytes, std::size_t len, std::size_t waiting)>;

    void start(tHandler handler);
    // Waits for the handler's call under way; queued segments are not delivered any more.
    void stop() { m_worker.stop(); }
    bool isSelf() const { return m_worker.isSelf(); }

    // Queues segments in a row under one lock. A thread that is awake delivers them meanwhile; one that sleeps is
    // notified at the end.
    class tBatch
    {
    public:
        explicit tBatch(tDeliveryWorker& worker) : m_worker(worker), m_held(worker.m_worker.lock()) {}
        ~tBatch();
        tBatch(const tBatch&) = delete;
        tBatch& operator=(const tBatch&) = delete;

        // Queues `len` bytes, which fill(place) writes under the lock: what it counts agrees with the queue's order.
        template <typename tFill>
        void push(std::size_t len, tFill fill)
        {
            fill(m_worker.m_queue.reserve(len));
        }
        // Queues a segment that was written into a block of its own.
        void push(std::unique_ptr<tWalkQueue::tBlock> block) { m_worker.m_queue.append(std::move(block)); }

    private:
        tDeliveryWorker& m_worker;
        tWorker::tLock m_held;
    };
    // Queues one package, and notifies the thread if it sleeps.
    void queue(std::size_t len, std::uint64_t timestamp_ms, std::uint16_t us, iSegmentSource& package) override;
    // Discards the waiting segments; a call under way finishes.
    void discard();
    // Waits until all that was queued before the call has been handled; returns false after `timeout`, or at once if
    // called from the handler.
    bool waitIdle(std::chrono::milliseconds timeout);

private:
    void run();
    void walk();
    bool waitForMore();
    bool lookForMore();

    tHandler m_handler;
    std::atomic<std::uint64_t> m_discarded{0};  // so many of the first are not delivered; changed under the lock
    std::uint64_t m_walked = 0;                 // the thread's own: segments handled or discarded
    // Guarded by m_worker.lock().
    alignas(64) tWalkQueue m_queue;
    std::uint64_t m_handled = 0;  // m_walked, updated when the thread takes the lock
    unsigned m_idleWaiters = 0;
    bool m_asleep = false;  // the thread waits and has not been notified yet
    alignas(64) tWorker m_worker;
};

#endif
