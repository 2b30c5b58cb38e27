// tGathering: how long a receive loop lets datagrams gather, so that it wakes up once for many of them.
//
// Shapes   the pause follows the rate of the last pass: about cBatch datagrams a socket, at most `longest`. A stream of
//          which no two datagrams come in that time is not waited for.
// Limit    no longer than the smallest receive buffer can hold, should a stream arrive at full speed during a pause: a
//          byte a nanosecond is more than a gigabit of the smallest datagrams takes, with the kernel's bookkeeping.
// Threads  limit() any; the rest the loop's.
#ifndef KESTOVA_NET_GATHERING_H
#define KESTOVA_NET_GATHERING_H

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace net
{
class tGathering
{
public:
    using tDuration = std::chrono::nanoseconds;
    static constexpr std::int64_t cBatch = 64;
    static constexpr tDuration cShortest = std::chrono::microseconds(100);

    // 0: never pauses.
    explicit tGathering(tDuration longest) : m_longest(longest.count()) {}

    bool enabled() const { return m_longest.load(std::memory_order_relaxed) >= cShortest.count(); }
    void limit(int receiveBuffer)
    {
        std::int64_t longest = m_longest;
        while (receiveBuffer < longest && !m_longest.compare_exchange_weak(longest, receiveBuffer))
            continue;
    }

    // Returns the pause after a pass that received `received` datagrams from `sockets` sockets, `elapsed` after the
    // pass before.
    tDuration pauseAfter(std::size_t received, std::size_t sockets, tDuration elapsed) const
    {
        const std::int64_t longest = m_longest.load(std::memory_order_relaxed);
        const auto datagrams = static_cast<std::int64_t>(received);
        const std::int64_t took = std::max<std::int64_t>(elapsed.count(), 1);
        if (datagrams == 0 || longest < cShortest.count() || took > datagrams * longest / 2)
            return tDuration(0);
        const std::int64_t wanted = cBatch * static_cast<std::int64_t>(sockets) * took / datagrams;
        return tDuration(std::clamp(wanted, cShortest.count(), longest));
    }

private:
    std::atomic<std::int64_t> m_longest;  // ns
};
}  // namespace net

#endif
