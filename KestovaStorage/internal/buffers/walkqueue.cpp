#include "KestovaStorage/internal/buffers/walkqueue.h"

#include <algorithm>
#include <utility>

bool tWalkQueue::nextBlock()
{
    if (m_blocks.empty())
        return false;
    if (m_walked != nullptr && !loadPublished())
    {
        if (m_blocks.size() == 1 && m_walked->size() == cFirstSize)  // reuses the block
        {
            m_walked->clear();
            walkFromStart(m_walked);
            return false;
        }
        m_walked->clear();
        m_spares.push_back(std::move(m_blocks.front()));
        m_blocks.pop_front();
        walkFromStart(nullptr);
    }
    if (m_walked == nullptr && !m_blocks.empty())
        walkFromStart(m_blocks.front().get());
    return loadPublished();
}

void tWalkQueue::walkFromStart(tBlock* block)
{
    m_walked = block;
    m_pos = 0;
    m_visible = 0;
}

// Publishes earlier blocks first: the consumer must see all of them before it moves to the new one.
void tWalkQueue::addBlock(std::unique_ptr<tBlock> block)
{
    publish();
    m_blocks.push_back(std::move(block));
}

// Returns a kept block if it is large enough, else a new one: twice as large as the last while a backlog grows.
std::unique_ptr<tWalkQueue::tBlock> tWalkQueue::newBlock(std::size_t len)
{
    if (!m_spares.empty() && m_spares.back()->fits(len))
    {
        auto block = std::move(m_spares.back());
        m_spares.pop_back();
        return block;
    }
    const std::size_t twice = m_blocks.empty() ? cFirstSize : 2 * m_blocks.back()->size();
    return std::make_unique<tBlock>(std::max(std::clamp(twice, cFirstSize, cLargestSize), len + sizeof len));
}

tWalkQueue::tBlocks tWalkQueue::takeSurplus()
{
    tBlocks surplus;
    std::size_t kept = 0;
    for (auto& spare : std::exchange(m_spares, {}))
    {
        const bool keep = kept + spare->size() <= cKeptSize;
        kept += keep ? spare->size() : 0;
        (keep ? m_spares : surplus).push_back(std::move(spare));
    }
    return surplus;
}

std::size_t tWalkQueue::memory() const
{
    std::size_t bytes = 0;
    for (const auto& block : m_blocks)
        bytes += block->size();
    for (const auto& spare : m_spares)
        bytes += spare->size();
    return bytes;
}
