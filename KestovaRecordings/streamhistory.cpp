#include "KestovaRecordings/streamhistory.h"

#include <algorithm>

namespace tool
{
namespace
{
constexpr std::size_t cGapsKept = 16;

bool longer(const tGap& a, const tGap& b)
{
    return a.length() > b.length();
}
}  // namespace

void tStreamHistory::add(std::uint64_t timeMs, std::string_view message, std::uint64_t gapMs, bool withDigest)
{
    m_firstMs = m_messages == 0 ? timeMs : std::min(m_firstMs, timeMs);
    m_lastMs = std::max(m_lastMs, timeMs);
    if (m_previousMs != 0 && timeMs > m_previousMs && timeMs - m_previousMs >= gapMs)
        remember({m_previousMs, timeMs});
    m_previousMs = timeMs;
    ++m_messages;
    m_bytes += message.size();
    if (withDigest)
        m_digest.add(message);
}

void tStreamHistory::remember(tGap gap)
{
    m_gaps.push_back(gap);
    std::push_heap(m_gaps.begin(), m_gaps.end(), longer);
    if (m_gaps.size() <= cGapsKept)
        return;
    std::pop_heap(m_gaps.begin(), m_gaps.end(), longer);
    m_gaps.pop_back();
}

double tStreamHistory::messagesPerSecond() const
{
    const std::uint64_t span = spanMs();
    return span == 0 ? 0.0 : static_cast<double>(m_messages - 1) * 1000.0 / static_cast<double>(span);
}

double tStreamHistory::bytesPerSecond() const
{
    return m_messages == 0 ? 0.0 : messagesPerSecond() * static_cast<double>(m_bytes) / static_cast<double>(m_messages);
}

std::vector<tGap> tStreamHistory::gaps() const
{
    const std::uint64_t usual = m_messages > 1 ? spanMs() / (m_messages - 1) : 0;
    std::vector<tGap> found;
    for (const tGap& gap : m_gaps)
    {
        if (gap.length() >= 3 * usual)
            found.push_back(gap);
    }
    std::sort(found.begin(), found.end(), longer);
    return found;
}
}  // namespace tool
