#include "sessions/monitor/arrivals.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace session
{
namespace
{
// Returns the value that this share of all values do not exceed.
std::int64_t percentile(std::vector<std::int64_t>& values, std::size_t percent)
{
    const std::size_t place = (values.size() * percent + 99) / 100 - 1;
    const auto at = values.begin() + static_cast<std::ptrdiff_t>(place);
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

double inMs(std::int64_t ns)
{
    return static_cast<double>(ns) / 1e6;
}
}  // namespace

void tArrivals::add(std::int64_t ns, std::uint64_t len)
{
    if (m_datagrams != 0)
    {
        const std::int64_t interval = std::max<std::int64_t>(ns - m_last, 0);
        m_intervals[m_intervalCnt++ % m_intervals.size()] = interval;
        m_longest = std::max(m_longest, interval);
    }
    m_last = ns;
    m_bytes += len;
    ++m_datagrams;
}

std::optional<tJitter> tArrivals::jitter() const
{
    if (m_intervalCnt < 2)
        return std::nullopt;
    const auto count = static_cast<std::ptrdiff_t>(std::min(m_intervalCnt, m_intervals.size()));
    std::vector<std::int64_t> values(m_intervals.begin(), m_intervals.begin() + count);
    const std::int64_t usual = percentile(values, 50);
    for (std::int64_t& value : values)
        value = std::abs(value - usual);
    const std::int64_t p50 = percentile(values, 50);
    return tJitter{inMs(p50), inMs(percentile(values, 99))};
}
}  // namespace session
