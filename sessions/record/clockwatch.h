// The system clock while it stamps a recording: when it was set, and how far it is from GPS time.
#ifndef KESTOVA_SESSIONS_RECORD_CLOCKWATCH_H
#define KESTOVA_SESSIONS_RECORD_CLOCKWATCH_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "KestovaRecordings/sheet.h"

namespace session
{
// The system clock, and one that nobody sets and that goes on while the machine sleeps; read at the same time.
struct tClocks
{
    std::int64_t realNs = 0;
    std::int64_t bootNs = 0;

    static tClocks now();
};

// Finds the steps of the system clock. Slewing, as time daemons prefer it, is no step. One thread at a time.
class tClockSteps
{
public:
    explicit tClockSteps(const tClocks& start) : m_apartNs(start.realNs - start.bootNs) {}

    // Returns the step, of 2 ms at least, since the call before.
    std::optional<recordings::tClockStep> update(const tClocks& now);

private:
    std::int64_t m_apartNs;
};

// The receive time of GPS sentences minus the time in them. One thread at a time.
class tClockOffset
{
public:
    void add(double receivedMs, std::uint64_t gpsMs);
    void stepped(std::int64_t stepMs) { m_steppedMs += static_cast<double>(stepMs); }

    // Returns the median of all, as of the last step.
    std::optional<double> offsetMs() const;
    // Returns how fast it grows, without the steps, in millionths; nothing until that is known to 2 millionths.
    std::optional<double> driftPpm() const;

private:
    using tSample = std::pair<double, double>;  // both in ms, without the steps: when received, the offset

    // Samples far beyond what a median needs are thinned out, so that they cover all of the time.
    static constexpr std::size_t cMostSamples = 8192;
    std::vector<tSample> m_samples;
    std::size_t m_every = 1, m_passed = 0;
    double m_steppedMs = 0.0;
};
}  // namespace session

#endif
