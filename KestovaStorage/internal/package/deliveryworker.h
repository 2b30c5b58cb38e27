// tDeliveryWorker: a queue of byte strings, and the thread that hands them one by one, in order, to a handler.
//
// Shapes   the thread reads segments in place and takes the lock only where it finds nothing more or a block ends. The
//          queue has no bound; the memory of a backlog is freed once it is walked.
// Threads  start() and stop() belong to the owner, everything else to any thread, the handler included. The handler
//          runs without a lock.
// Wake-up  only a sleeping thread is notified: while it is awake a push costs an uncontended lock and a copy.
// Errors   std::bad_alloc leaves push() before its callback was called; nothing is queued then.
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
    // Waits for the handler's call under way; what is queued is not handed over any more.
    void stop() { m_worker.stop(); }
    bool isSelf() const { return m_worker.isSelf(); }

    // Queues segments in a row under one lock. They are handed over meanwhile by a thread that is awake; one that
    // sleeps is notified at the end.
    class tRun
    {
    public:
        explicit tRun(tDeliveryWorker& worker) : m_worker(worker), m_held(worker.m_worker.lock()) {}
        ~tRun();
        tRun(const tRun&) = delete;
        tRun& operator=(const tRun&) = delete;

        // Queues `len` bytes, which fill(place) writes under the lock: what it counts agrees with the queue's order.
        template <typename tFill>
        void push(std::size_t len, tFill fill)
        {
            fill(m_worker.m_chain.reserve(len));
        }
        // Queues a segment that was written into a block of its own.
        void push(std::unique_ptr<tWalkQueue::tLink> block) { m_worker.m_chain.append(std::move(block)); }

    private:
        tDeliveryWorker& m_worker;
        tWorker::tLock m_held;
    };
    // Queues one package; the thread that sleeps is notified.
    void queue(std::size_t len, std::uint64_t timestamp_ms, iSegmentSource& package) override;
    // What waits is not handed over; a call under way goes on.
    void discard();
    // Waits until all that was queued before the call has been handled; false after `timeout`, or at once when called
    // from the handler.
    bool waitIdle(std::chrono::milliseconds timeout);

private:
    void run();
    void walk();
    bool waitForMore();
    bool lookForMore();

    tHandler m_handler;
    std::atomic<std::uint64_t> m_discarded{0};  // so many of the first are not handed over; changed under the lock
    std::uint64_t m_walked = 0;                 // the thread's own: segments handled or passed over
    // Guarded by m_worker.lock().
    alignas(64) tWalkQueue m_chain;
    std::uint64_t m_handled = 0;  // m_walked, brought up to date where the thread takes the lock
    unsigned m_idleWaiters = 0;
    bool m_asleep = false;  // the thread waits and has not been notified yet
    alignas(64) tWorker m_worker;
};

#endif
