#include "server/viewerqueue.h"

#include <algorithm>
#include <memory>

namespace server
{
namespace
{
constexpr std::size_t cMostTexts = 256;
constexpr std::size_t cMostBytes = 4 << 20;
constexpr double cMostTurns = 1.0;
}  // namespace

void tViewerQueue::addText(std::string text)
{
    const std::lock_guard lock(m_mutex);
    m_texts.push_back(std::move(text));
    if (m_texts.size() > cMostTexts)
        m_texts.pop_front();
}

void tViewerQueue::drop(const std::deque<tWaitingBatch>::iterator& batch)
{
    m_bytes -= batch->batch.bytes->size();
    m_turns[batch->picture] -= batch->batch.turns;
    m_batches.erase(batch);
}

std::size_t tViewerQueue::addBatch(std::size_t picture, const tBatch& batch)
{
    const std::lock_guard lock(m_mutex);
    std::size_t dropped = 0;
    const auto thin = [&](auto oldest) {
        dropped += oldest->batch.spokes;
        m_thinned[oldest->picture] += oldest->batch.spokes;
        drop(oldest);
    };
    while (!m_batches.empty() && m_bytes + batch.bytes->size() > cMostBytes)
        thin(m_batches.begin());
    while (m_turns[picture] + batch.turns > cMostTurns)
    {
        const auto oldest = std::ranges::find(m_batches, picture, &tWaitingBatch::picture);
        if (oldest == m_batches.end())
            break;
        thin(oldest);
    }
    m_bytes += batch.bytes->size();
    m_turns[picture] += batch.turns;
    m_batches.push_back({picture, batch});
    return dropped;
}

void tViewerQueue::clear(std::size_t picture)
{
    const std::lock_guard lock(m_mutex);
    for (std::size_t i = m_batches.size(); i-- > 0;)
        if (m_batches[i].picture == picture)
            drop(m_batches.begin() + static_cast<std::ptrdiff_t>(i));
}

bool tViewerQueue::next(tFrame& frame)
{
    const std::lock_guard lock(m_mutex);
    if (!m_texts.empty())
    {
        frame = {std::make_shared<const std::string>(std::move(m_texts.front())), false};
        m_texts.pop_front();
        return true;
    }
    if (m_batches.empty())
        return false;
    frame = {m_batches.front().batch.bytes, true};
    drop(m_batches.begin());
    return true;
}

tViewerQueue::tWaiting tViewerQueue::waiting(std::size_t picture) const
{
    const std::lock_guard lock(m_mutex);
    return {m_bytes, m_turns[picture]};
}

std::uint64_t tViewerQueue::thinned(std::size_t picture) const
{
    const std::lock_guard lock(m_mutex);
    return m_thinned[picture];
}
}  // namespace server
