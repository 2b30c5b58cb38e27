// tArrivals: one stream as it arrives: counts, jitter, silences.
//
// Jitter   how far an interval between two datagrams is from the usual one, the median of the last 1,024: half of them
//          are no farther than p50, 99 of 100 no farther than p99. A stream that comes in bursts has a large one.
// Threads  one at a time. Times are passed in.
#ifndef KESTOVA_SESSIONS_MONITOR_ARRIVALS_H
#define KESTOVA_SESSIONS_MONITOR_ARRIVALS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace session
{
struct tJitter
{
    double p50Ms = 0.0;
    double p99Ms = 0.0;
};

class tArrivals
{
public:
    // A datagram of `len` bytes arrived at `ns`, by a clock that the intervals are taken from. One that goes back gives
    // an interval of 0.
    void add(std::int64_t ns, std::uint64_t len);

    std::uint64_t datagrams() const { return m_datagrams; }
    std::uint64_t bytes() const { return m_bytes; }
    std::int64_t longestInterval() const { return m_longest; }  // in ns
    std::optional<tJitter> jitter() const;                      // nothing before the third datagram

private:
    std::uint64_t m_datagrams = 0;
    std::uint64_t m_bytes = 0;
    std::int64_t m_last = 0;
    std::int64_t m_longest = 0;
    std::array<std::int64_t, 1024> m_intervals{};  // a ring of the last ones, in ns
    std::size_t m_intervalCnt = 0;                 // ever
};
}  // namespace session

#endif
