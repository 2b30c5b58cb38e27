#include "sessions/record/clockwatch.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <limits>

namespace session
{
namespace
{
constexpr std::int64_t cLeastStepNs = 2'000'000;

std::int64_t nowOf(clockid_t clock)
{
    timespec time{};
    ::clock_gettime(clock, &time);
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

double median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

struct tPoint
{
    double x, y;
};

// The medians of equal stretches of time: single late sentences do not count.
std::vector<tPoint> mediansOf(const std::vector<std::pair<double, double>>& samples)
{
    constexpr std::size_t cStretches = 64;
    const auto [least, most] = std::ranges::minmax_element(samples);
    const double begin = least->first, span = most->first - begin;
    std::vector<std::vector<double>> stretches(cStretches);
    for (const auto& [x, y] : samples)
        stretches[std::min(cStretches - 1, static_cast<std::size_t>((x - begin) / span * cStretches))].push_back(y);
    std::vector<tPoint> medians;
    for (std::size_t i = 0; i < cStretches; ++i)
    {
        if (!stretches[i].empty())
            medians.push_back({begin + span * (static_cast<double>(i) + 0.5) / cStretches, median(stretches[i])});
    }
    return medians;
}

struct tSlope
{
    double value, error;
};

// The line through the points by least squares.
tSlope slopeOf(const std::vector<tPoint>& points)
{
    const auto count = static_cast<double>(points.size());
    double x = 0.0, y = 0.0, xx = 0.0, xy = 0.0, rest = 0.0;
    for (const tPoint& point : points)
    {
        x += point.x / count;
        y += point.y / count;
    }
    for (const tPoint& point : points)
    {
        xx += (point.x - x) * (point.x - x);
        xy += (point.x - x) * (point.y - y);
    }
    const double slope = xy / xx;
    for (const tPoint& point : points)
        rest += std::pow(point.y - y - slope * (point.x - x), 2);
    return {slope, std::sqrt(rest / (count - 2) / xx)};
}
}  // namespace

// Between two readings of one clock the thread may be suspended: the closest of several counts.
tClocks tClocks::now()
{
    tClocks best;
    std::int64_t closest = std::numeric_limits<std::int64_t>::max();
    for (int i = 0; i < 5 && closest > 1000; ++i)
    {
        const std::int64_t before = nowOf(CLOCK_BOOTTIME), real = nowOf(CLOCK_REALTIME), after = nowOf(CLOCK_BOOTTIME);
        if (after - before >= closest)
            continue;
        closest = after - before;
        best = {real, before + closest / 2};
    }
    return best;
}

std::optional<recordings::tClockStep> tClockSteps::update(const tClocks& now)
{
    const std::int64_t step = now.realNs - now.bootNs - m_apartNs;
    if (step > -cLeastStepNs && step < cLeastStepNs)
        return std::nullopt;
    m_apartNs += step;
    return recordings::tClockStep{static_cast<std::uint64_t>(std::max<std::int64_t>(0, now.realNs / 1'000'000)),
                                  std::llround(static_cast<double>(step) / 1e6)};
}

void tClockOffset::add(double receivedMs, std::uint64_t gpsMs)
{
    if (m_passed++ % m_every != 0)
        return;
    if (m_samples.size() == cMostSamples)
    {
        for (std::size_t i = 0; i < cMostSamples / 2; ++i)
            m_samples[i] = m_samples[2 * i];
        m_samples.resize(cMostSamples / 2);
        m_every *= 2;
    }
    m_samples.emplace_back(receivedMs - m_steppedMs, receivedMs - m_steppedMs - static_cast<double>(gpsMs));
}

std::optional<double> tClockOffset::offsetMs() const
{
    if (m_samples.empty())
        return std::nullopt;
    std::vector<double> offsets;
    for (const tSample& sample : m_samples)
        offsets.push_back(sample.second);
    return median(std::move(offsets)) + m_steppedMs;
}

std::optional<double> tClockOffset::driftPpm() const
{
    constexpr std::size_t cFewestPoints = 16;
    constexpr double cLeastSpanMs = 60'000.0, cMillion = 1e6, cKnownTo = 2.0;
    if (m_samples.empty())
        return std::nullopt;
    const auto [first, last] = std::ranges::minmax_element(m_samples);
    if (last->first - first->first < cLeastSpanMs)
        return std::nullopt;
    const std::vector<tPoint> points = mediansOf(m_samples);
    if (points.size() < cFewestPoints)
        return std::nullopt;
    const tSlope slope = slopeOf(points);
    if (!(slope.error * cMillion <= cKnownTo))
        return std::nullopt;
    return slope.value * cMillion;
}
}  // namespace session
