// tLateness: the truth about the pace of a replay: how late its records were, and how its clock drifted.
#ifndef KESTOVA_SESSIONS_REPLAY_LATENESS_H
#define KESTOVA_SESSIONS_REPLAY_LATENESS_H

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>

namespace session
{
// Nothing where no record had a time to be played at, as at top speed.
struct tPaceTruth
{
    std::optional<double> p50Ms, p99Ms, maxMs;  // played later than due; to a hundredth of the value
    // How much longer playing took than the recorded times between its records ask for, in per cent of these. Leaves
    // out pauses, jumps and skipped silences, changes of speed, and waits for what is being recorded.
    std::optional<double> driftPercent;
};

// Memory is 64 KiB, however many records there are. add() on the replay thread, the rest on any.
class tLateness
{
public:
    using tTime = std::chrono::steady_clock::time_point;

    void setSpeed(double factor);
    // A record was played now: its recorded time, the microseconds within it, below 0 where they are not known, and
    // when it was due, in ns of the steady clock. 0: at no time.
    void add(std::uint64_t timeMs, int us, std::int64_t dueNs) { add(timeMs, us, dueNs, tTime::clock::now()); }
    void add(std::uint64_t timeMs, int us, std::int64_t dueNs, tTime now);
    tPaceTruth truth() const;

private:
    // Buckets are narrower than a hundredth of the values in them.
    static constexpr unsigned cDigits = 7;
    static constexpr std::size_t cBuckets = (64 - cDigits + 1) << cDigits;

    struct tPlayed
    {
        std::int64_t recordedUs, dueNs, playedNs;
    };
    static std::size_t bucketOf(std::uint64_t ns);
    static std::uint64_t upperEnd(std::size_t bucket);
    double quantileMs(double part) const;
    void drift(const tPlayed& played);

    mutable std::mutex m_mutex;  // guards everything below
    double m_factor = 1.0;
    std::array<std::uint64_t, cBuckets> m_counts{};
    std::uint64_t m_records = 0, m_maxNs = 0;
    std::optional<tPlayed> m_last;                // nothing at the beginning of a stretch
    double m_expectedNs = 0.0, m_passedNs = 0.0;  // sums between neighbours
};
}  // namespace session

#endif
