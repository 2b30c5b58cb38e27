// tWalkQueue: a queue of byte strings whose consumer walks it in place and needs the lock only at the end of a block.
//
// Shapes   blocks of segments, filled at the back and walked at the front; a segment lies behind its length. The
//          consumer sees published segments only, so several may be published at once. Blocks become larger while a
//          backlog grows.
// Owner    owns its blocks and reuses walked ones, so that a steady stream allocates nothing; a queue that was walked
//          to its end starts again at the front of its block, in memory that is still in the cache.
// Threads  next() belongs to the one consumer and needs no lock; everything else is called under the owner's lock.
// Errors   reserve(), append() and makeBlock() throw std::bad_alloc and leave the queue unchanged.
#ifndef KESTOVA_STORAGE_BUFFERS_WALKQUEUE_H
#define KESTOVA_STORAGE_BUFFERS_WALKQUEUE_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <memory>
#include <utility>
#include <vector>

#include "KestovaStorage/internal/buffers/byteregion.h"

class tWalkQueue
{
public:
    static constexpr std::size_t cFirstSize = 256 * 1024;
    static constexpr std::size_t cLargestSize = 4 * 1024 * 1024;  // of a block that holds several segments
    static constexpr std::size_t cKeptSize = 8 * 1024 * 1024;     // of all walked blocks that are kept in the end

    class tBlock
    {
    public:
        explicit tBlock(std::size_t size) : m_memory(size) {}

        std::size_t size() const { return m_memory.size(); }
        bool fits(std::size_t len) const { return len <= size() - m_filled && sizeof len <= size() - m_filled - len; }
        char* reserve(std::size_t len)
        {
            char* const place = m_memory.bytes() + m_filled;
            std::memcpy(place, &len, sizeof len);
            m_filled += sizeof len + len;
            return place + sizeof len;
        }
        void publish() { m_published.store(m_filled, std::memory_order_release); }
        void clear()
        {
            m_filled = 0;
            publish();
        }

    private:
        friend class tWalkQueue;

        tByteRegion m_memory;
        std::size_t m_filled = 0;
        std::atomic<std::size_t> m_published{0};  // bytes that the consumer may read
    };
    using tBlocks = std::vector<std::unique_ptr<tBlock>>;

    // Returns a block with room for one segment of `len` bytes, to be filled outside the queue.
    static std::unique_ptr<tBlock> makeBlock(std::size_t len) { return std::make_unique<tBlock>(len + sizeof len); }
    void append(std::unique_ptr<tBlock> filled)
    {
        addBlock(std::move(filled));
        ++m_unpublished;
    }
    // Returns room for a segment of `len` bytes at the back; publish() follows before the lock is released.
    char* reserve(std::size_t len)
    {
        if (m_blocks.empty() || !m_blocks.back()->fits(len))
            addBlock(newBlock(len));
        ++m_unpublished;
        return m_blocks.back()->reserve(len);
    }
    void publish()
    {
        if (m_unpublished == 0)
            return;
        // Counted before they are visible: the consumer never has more than are counted.
        m_published.store(published() + std::exchange(m_unpublished, 0), std::memory_order_relaxed);
        m_blocks.back()->publish();
    }
    // Segments published since construction. The consumer may read it without the lock.
    std::uint64_t published() const { return m_published.load(std::memory_order_relaxed); }

    // Consumer: sets the next segment of the current block; returns false at the block's end.
    bool next(const char*& bytes, std::size_t& len)
    {
        if (m_pos == m_visible && !loadPublished())
            return false;
        std::memcpy(&len, m_walked->m_memory.bytes() + m_pos, sizeof len);
        bytes = m_walked->m_memory.bytes() + m_pos + sizeof len;
        m_pos += sizeof len + len;
        return true;
    }
    // Consumer, after next() returned false: moves to the next block; returns false if all is walked.
    bool nextBlock();
    // Returns walked blocks that are not kept for reuse, large ones that a backlog needed, to be freed without the
    // lock.
    tBlocks takeSurplus();

    std::size_t memory() const;  // bytes of all blocks

private:
    bool loadPublished()
    {
        if (m_walked != nullptr)
            m_visible = m_walked->m_published.load(std::memory_order_acquire);
        return m_pos != m_visible;
    }
    void addBlock(std::unique_ptr<tBlock> block);
    std::unique_ptr<tBlock> newBlock(std::size_t len);
    void walkFromStart(tBlock* block);

    std::deque<std::unique_ptr<tBlock>> m_blocks;
    tBlocks m_spares;
    std::uint64_t m_unpublished = 0;

    // Read by both sides; on a cache line of its own, since the members above change with every segment.
    alignas(64) std::atomic<std::uint64_t> m_published{0};

    // The consumer's.
    alignas(64) tBlock* m_walked = nullptr;  // the front one
    std::size_t m_pos = 0;                   // of the next segment in it
    std::size_t m_visible = 0;               // bytes of it known to be published
};

#endif
