#include "KestovaRecordings/activity.h"

#include <algorithm>

namespace recordings
{
void tActivity::add(std::uint64_t timeMs)
{
    add(tGap{timeMs, timeMs});
}

void tActivity::add(const tGap& stretch)
{
    if (!m_stretches.empty())
    {
        tGap& last = m_stretches.back();
        if (stretch.toMs + m_silenceMs >= last.fromMs && stretch.fromMs <= last.toMs + m_silenceMs)
        {
            last.fromMs = std::min(last.fromMs, stretch.fromMs);
            last.toMs = std::max(last.toMs, stretch.toMs);
            return;
        }
    }
    m_stretches.push_back(stretch);
}

void tActivity::add(const tActivity& other)
{
    for (const tGap& stretch : other.m_stretches)
        add(stretch);
}

std::vector<tGap> tActivity::silences() const
{
    std::vector<tGap> ordered = m_stretches;
    std::sort(ordered.begin(), ordered.end(), [](const tGap& a, const tGap& b) { return a.fromMs < b.fromMs; });
    std::vector<tGap> found;
    std::uint64_t end = ordered.empty() ? 0 : ordered.front().toMs;
    for (const tGap& stretch : ordered)
    {
        if (stretch.fromMs > end + m_silenceMs)
            found.push_back({end, stretch.fromMs});
        end = std::max(end, stretch.toMs);
    }
    return found;
}
}  // namespace recordings
