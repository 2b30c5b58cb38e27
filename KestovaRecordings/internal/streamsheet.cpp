#include "KestovaRecordings/internal/streamsheet.h"

#include <algorithm>

namespace recordings
{
namespace
{
constexpr std::size_t cGapsKept = 16;

bool longer(const tGap& a, const tGap& b)
{
    return a.length() > b.length();
}

void putInOrder(tPerSecond& seconds)
{
    std::ranges::sort(seconds);
    std::size_t last = 0;
    for (std::size_t i = 1; i < seconds.size(); ++i)
    {
        if (seconds[i].first == seconds[last].first)
            seconds[last].second += seconds[i].second;
        else
            seconds[++last] = seconds[i];
    }
    seconds.resize(last + 1);
}
}  // namespace

void tStreamSheet::add(std::uint64_t timeMs, std::string_view message)
{
    m_row.digest.add(message);
    m_row.bytes += message.size();
    m_row.firstMs = m_row.messages == 0 ? timeMs : std::min(m_row.firstMs, timeMs);
    m_row.lastMs = std::max(m_row.lastMs, timeMs);
    if (m_row.messages != 0 && timeMs > m_previousMs)
        addSilence({m_previousMs, timeMs});
    ++m_row.messages;
    m_previousMs = timeMs;
    addSecond(timeMs / 1000);
}

void tStreamSheet::addSecond(std::uint64_t second)
{
    tPerSecond& seconds = m_row.perSecond;
    if (!seconds.empty() && seconds.back().first == second)
    {
        ++seconds.back().second;
        return;
    }
    m_ordered = m_ordered && (seconds.empty() || seconds.back().first < second);
    seconds.emplace_back(second, 1);
    if (m_ordered || seconds.size() < m_mostSeconds)
        return;
    putInOrder(seconds);
    m_ordered = true;
    m_mostSeconds = std::max(m_mostSeconds, 2 * seconds.size());
}

void tStreamSheet::addSilence(tGap gap)
{
    m_row.longestSilenceMs = std::max(m_row.longestSilenceMs, gap.length());
    if (gap.length() < cSheetGapMs)
        return;
    std::vector<tGap>& gaps = m_row.gaps;
    gaps.push_back(gap);
    std::ranges::push_heap(gaps, longer);
    if (gaps.size() <= cGapsKept)
        return;
    std::ranges::pop_heap(gaps, longer);
    gaps.pop_back();
}

void tStreamSheet::fill(tSheetStream& row) const
{
    const std::uint64_t kernelDropped = row.kernelDropped;
    const auto missingOnWire = row.missingOnWire;
    row = m_row;
    row.kernelDropped = kernelDropped;
    row.missingOnWire = missingOnWire;
    std::ranges::sort(row.gaps, longer);
    if (!m_ordered)
        putInOrder(row.perSecond);
}
}  // namespace recordings
