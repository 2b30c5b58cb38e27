#include "sessions/replay/lateness.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace session
{
namespace
{
constexpr double cNsPerMs = 1e6;
// Deadlines that differ by more from the recorded times, and by more than a hundredth, were set anew.
constexpr double cSetAnewNs = 2.5e6;
constexpr double cSetAnewPart = 0.01;
}  // namespace

void tLateness::setSpeed(double factor)
{
    const std::lock_guard lock(m_mutex);
    m_factor = factor;
    m_last.reset();
}

std::size_t tLateness::bucketOf(std::uint64_t ns)
{
    constexpr std::uint64_t cExact = std::uint64_t{1} << cDigits;
    if (ns < cExact)
        return static_cast<std::size_t>(ns);
    const unsigned shift = static_cast<unsigned>(std::bit_width(ns)) - 1 - cDigits;
    return ((static_cast<std::size_t>(shift) + 1) << cDigits) + static_cast<std::size_t>((ns >> shift) - cExact);
}

// Returns the largest value that lies in the bucket.
std::uint64_t tLateness::upperEnd(std::size_t bucket)
{
    constexpr std::size_t cExact = std::size_t{1} << cDigits;
    if (bucket < cExact)
        return bucket;
    const std::size_t shift = (bucket >> cDigits) - 1;
    return ((static_cast<std::uint64_t>(bucket & (cExact - 1)) + cExact + 1) << shift) - 1;
}

void tLateness::add(std::uint64_t timeMs, int us, std::int64_t dueNs, tTime now)
{
    if (dueNs == 0)
        return;
    const std::int64_t nowNs = std::chrono::nanoseconds(now.time_since_epoch()).count();
    const auto late = static_cast<std::uint64_t>(std::max<std::int64_t>(nowNs - dueNs, 0));
    const std::lock_guard lock(m_mutex);
    ++m_counts[bucketOf(late)];
    ++m_records;
    m_maxNs = std::max(m_maxNs, late);
    drift({static_cast<std::int64_t>(timeMs) * 1000 + std::max(us, 0), dueNs, nowNs});
}

// With the lock held.
void tLateness::drift(const tPlayed& played)
{
    if (m_last)
    {
        const double expected = static_cast<double>(played.recordedUs - m_last->recordedUs) * 1000.0 / m_factor;
        const double planned = static_cast<double>(played.dueNs - m_last->dueNs);
        const double allowed = std::max(cSetAnewNs / std::min(m_factor, 1.0), cSetAnewPart * std::abs(expected));
        if (std::abs(planned - expected) <= allowed)
        {
            m_expectedNs += expected;
            m_passedNs += static_cast<double>(played.playedNs - m_last->playedNs);
        }
    }
    m_last = played;
}

// With the lock held.
double tLateness::quantileMs(double part) const
{
    const auto rank = static_cast<std::uint64_t>(std::ceil(part * static_cast<double>(m_records)));
    std::uint64_t seen = 0;
    for (std::size_t i = 0; i < cBuckets; ++i)
    {
        seen += m_counts[i];
        if (seen >= rank)
            return static_cast<double>(std::min(upperEnd(i), m_maxNs)) / cNsPerMs;
    }
    return static_cast<double>(m_maxNs) / cNsPerMs;
}

tPaceTruth tLateness::truth() const
{
    const std::lock_guard lock(m_mutex);
    tPaceTruth truth;
    if (m_records == 0)
        return truth;
    truth.p50Ms = quantileMs(0.5);
    truth.p99Ms = quantileMs(0.99);
    truth.maxMs = static_cast<double>(m_maxNs) / cNsPerMs;
    if (m_expectedNs > 0.0)
        truth.driftPercent = (m_passedNs / m_expectedNs - 1.0) * 100.0;
    return truth;
}
}  // namespace session
