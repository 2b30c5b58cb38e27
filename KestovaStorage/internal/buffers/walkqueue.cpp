#include "KestovaStorage/internal/buffers/walkqueue.h"

#include <algorithm>
#include <utility>

bool tWalkQueue::step()
{
    if (m_links.empty())
        return false;
    if (m_walked != nullptr && !look())
    {
        if (m_links.size() == 1 && m_walked->size() == cFirstSize)  // reuses the block
        {
            m_walked->clear();
            walkFromStart(m_walked);
            return false;
        }
        m_walked->clear();
        m_spares.push_back(std::move(m_links.front()));
        m_links.pop_front();
        walkFromStart(nullptr);
    }
    if (m_walked == nullptr && !m_links.empty())
        walkFromStart(m_links.front().get());
    return look();
}

void tWalkQueue::walkFromStart(tLink* link)
{
    m_walked = link;
    m_pos = 0;
    m_visible = 0;
}

// Publishes earlier blocks first: the consumer must see all of them before it moves to the new one.
void tWalkQueue::addLink(std::unique_ptr<tLink> link)
{
    publish();
    m_links.push_back(std::move(link));
}

// A kept block if it is large enough, else a new one: twice as large as the last while a backlog grows.
std::unique_ptr<tWalkQueue::tLink> tWalkQueue::newLink(std::size_t len)
{
    if (!m_spares.empty() && m_spares.back()->fits(len))
    {
        auto link = std::move(m_spares.back());
        m_spares.pop_back();
        return link;
    }
    const std::size_t twice = m_links.empty() ? cFirstSize : 2 * m_links.back()->size();
    return std::make_unique<tLink>(std::max(std::clamp(twice, cFirstSize, cLargestSize), len + sizeof len));
}

tWalkQueue::tLinks tWalkQueue::takeUnneeded()
{
    tLinks unneeded;
    std::size_t kept = 0;
    for (auto& spare : std::exchange(m_spares, {}))
    {
        const bool keep = kept + spare->size() <= cKeptSize;
        kept += keep ? spare->size() : 0;
        (keep ? m_spares : unneeded).push_back(std::move(spare));
    }
    return unneeded;
}

std::size_t tWalkQueue::memory() const
{
    std::size_t bytes = 0;
    for (const auto& link : m_links)
        bytes += link->size();
    for (const auto& spare : m_spares)
        bytes += spare->size();
    return bytes;
}
