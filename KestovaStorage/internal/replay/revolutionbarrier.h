// tRevolutionBarrier: the circle spoke loops of this process wait here before each revolution, so that all start it
// together.
//
// A counted barrier with a generation. Only loops that turn are counted: one that is empty, stopped or destroyed delays
// none. The last one to arrive waits 10 ms and releases all.
//
// Threads  any. A loop's `turning` flag is read under the lock: clear it, then wake().
#ifndef KESTOVA_STORAGE_REPLAY_REVOLUTIONBARRIER_H
#define KESTOVA_STORAGE_REPLAY_REVOLUTIONBARRIER_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace Kestova
{
class tRevolutionBarrier
{
public:
    static constexpr std::chrono::milliseconds cPause{10};

    static tRevolutionBarrier& shared();  // of all loops of this process; never destroyed

    void enter();  // a loop begins to turn
    void leave();  // it has stopped; loops that waited for it alone go on
    // Waits until every turning loop has arrived, or `turning` is cleared. Between enter() and leave().
    void arrive(const std::atomic<bool>& turning);
    void wake();

private:
    void release();  // under m_mutex

    std::mutex m_mutex;
    std::condition_variable m_allReady;
    unsigned int m_turning = 0;      // guarded by m_mutex, as is all below
    unsigned int m_arrived = 0;      // of this generation
    std::uint64_t m_generation = 0;  // one more at each release
};
}  // namespace Kestova

#endif
