#include "KestovaRecordings/internal/offsethistogram.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

namespace recordings
{
namespace
{
using tWeighted = std::pair<double, std::uint64_t>;  // a value, and how often it occurred

// Returns the smallest value that at least `share` of all are not above.
double quantile(std::vector<tWeighted>& values, double share)
{
    std::sort(values.begin(), values.end());
    std::uint64_t total = 0, sum = 0;
    for (const tWeighted& value : values)
        total += value.second;
    for (const tWeighted& value : values)
    {
        sum += value.second;
        if (static_cast<double>(sum) >= share * static_cast<double>(total))
            return value.first;
    }
    return 0.0;
}
}  // namespace

void tOffsetHistogram::find(std::int64_t number, const tTimePair& pair)
{
    if (m_bins.size() >= m_mostBins && m_bins.find(number) == m_bins.end())
    {
        while (m_bins.size() >= m_mostBins)
            widen();
        number = (pair.bUs - pair.aUs) >> m_shift;
    }
    const auto [bin, isNew] = m_bins.try_emplace(number);
    if (isNew)
        bin->second.first = pair;
    m_last = &bin->second;
    m_lastNumber = number;
}

void tOffsetHistogram::widen()
{
    ++m_shift;
    for (auto& [number, bin] : std::exchange(m_bins, {}))
    {
        tBin& wide = m_bins[number >> 1];
        if (wide.count == 0 || bin.first.aUs < wide.first.aUs)
            wide.first = bin.first;
        wide.count += bin.count;
    }
}

double tOffsetHistogram::centre(std::int64_t number) const
{
    const double width = std::ldexp(1.0, static_cast<int>(m_shift));
    const double value = static_cast<double>(number) * width + (width - 1.0) / 2.0;
    return std::clamp(value, static_cast<double>(m_least), static_cast<double>(m_greatest));
}

double tOffsetHistogram::medianUs() const
{
    std::vector<tWeighted> offsets;
    for (const auto& [number, bin] : m_bins)
        offsets.emplace_back(centre(number), bin.count);
    return quantile(offsets, 0.5);
}

tOffsetHistogram::tDeviations tOffsetHistogram::deviationsFrom(double offsetUs) const
{
    if (m_count == 0)
        return {};
    std::vector<tWeighted> deviations;
    for (const auto& [number, bin] : m_bins)
        deviations.emplace_back(std::abs(centre(number) - offsetUs), bin.count);
    const double greatest =
        std::max(static_cast<double>(m_greatest) - offsetUs, offsetUs - static_cast<double>(m_least));
    return {quantile(deviations, 0.5), quantile(deviations, 0.99), greatest};
}

std::uint64_t tOffsetHistogram::countBeyond(double offsetUs, double toleranceUs, tTimePair& first) const
{
    std::uint64_t beyond = 0;
    for (const auto& [number, bin] : m_bins)
    {
        if (std::abs(centre(number) - offsetUs) <= toleranceUs)
            continue;
        if (beyond == 0 || bin.first.aUs < first.aUs)
            first = bin.first;
        beyond += bin.count;
    }
    return beyond;
}
}  // namespace recordings
