// tBatchQueue: a queue of byte strings, each with a 64-bit tag, in large reused blocks.
//
// Shapes   a block holds the bytes of its segments back to back from its start and, growing down from its end, one
//          entry (length, tag) each: segments of a block are contiguous and can be written with one call.
// Owner    owns its blocks. take() passes all queued blocks to the consumer, which returns them with recycle(); a few
//          blocks are kept warm, so that a steady stream allocates nothing.
// Threads  none of its own and no lock: the owner's lock guards it. take() and recycle() move pointers only.
// Errors   push() throws std::bad_alloc and leaves the queue unchanged.
#ifndef KESTOVA_STORAGE_BUFFERS_BATCHQUEUE_H
#define KESTOVA_STORAGE_BUFFERS_BATCHQUEUE_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

struct tSegmentEntry
{
    std::uint64_t len;
    std::uint64_t tag;
};

// One block: segments in the order they were pushed.
class tSegmentBlock
{
public:
    static constexpr std::size_t cDefaultSize = 512 * 1024;

    explicit tSegmentBlock(std::size_t size = cDefaultSize)
        : m_size(size & ~(alignof(tSegmentEntry) - 1)), m_bytes(new char[m_size])
    {}

    bool fits(std::size_t len) const { return len <= room() && room() - len >= sizeof(tSegmentEntry); }
    // Returns room for `len` bytes, which the caller fills; requires fits(len).
    char* push(std::size_t len, std::uint64_t tag)
    {
        char* const place = m_bytes.get() + m_used;
        m_used += len;
        ++m_count;
        const tSegmentEntry entry{len, tag};
        std::memcpy(m_bytes.get() + m_size - m_count * sizeof entry, &entry, sizeof entry);
        return place;
    }
    void clear() { m_used = m_count = 0; }
    // Touches every page, so that pushing into it never waits for the kernel.
    void prefault() { std::memset(m_bytes.get(), 0, m_size); }

    const char* bytes() const { return m_bytes.get(); }
    std::size_t used() const { return m_used; }    // bytes of all segments
    std::size_t count() const { return m_count; }  // segments
    std::size_t size() const { return m_size; }
    tSegmentEntry entry(std::size_t i) const
    {
        tSegmentEntry entry;
        std::memcpy(&entry, m_bytes.get() + m_size - (i + 1) * sizeof entry, sizeof entry);
        return entry;
    }

private:
    std::size_t room() const { return m_size - m_used - m_count * sizeof(tSegmentEntry); }

    std::size_t m_size;
    std::unique_ptr<char[]> m_bytes;
    std::size_t m_used = 0;
    std::size_t m_count = 0;
};

using tSegmentBlocks = std::vector<std::unique_ptr<tSegmentBlock>>;

class tBatchQueue
{
public:
    static constexpr std::size_t cMaxSpares = 16;

    bool empty() const { return m_count == 0; }
    std::size_t count() const { return m_count; }  // segments queued
    std::size_t bytes() const { return m_bytes; }

    // Queues a segment of `len` bytes and returns the place for them; the caller fills it before it releases its lock.
    char* push(std::size_t len, std::uint64_t tag)
    {
        if (m_queued.empty() || !m_queued.back()->fits(len))
            addBlock(len);
        char* const place = m_queued.back()->push(len, tag);
        ++m_count;
        m_bytes += len;
        return place;
    }
    void push(const char* data, std::size_t len, std::uint64_t tag)
    {
        char* const place = push(len, tag);
        if (len != 0)
            std::memcpy(place, data, len);
    }
    // Queues a block filled elsewhere, behind everything queued.
    void push(std::unique_ptr<tSegmentBlock> filled)
    {
        m_queued.push_back(std::move(filled));
        m_count += m_queued.back()->count();
        m_bytes += m_queued.back()->used();
    }

    // Moves everything queued to `into`, which is empty.
    void take(tSegmentBlocks& into)
    {
        into.swap(m_queued);
        m_count = 0;
        m_bytes = 0;
    }
    // Takes used blocks back, keeps up to cMaxSpares of the usual size warm and leaves the rest in `used` for the
    // caller to free outside its lock.
    void recycle(tSegmentBlocks& used)
    {
        while (!used.empty() && m_spares.size() < cMaxSpares && used.back()->size() == tSegmentBlock::cDefaultSize)
        {
            used.back()->clear();
            m_spares.push_back(std::move(used.back()));
            used.pop_back();
        }
    }
    // Keeps `count` spare blocks whose pages are touched.
    void reserve(std::size_t count)
    {
        while (m_spares.size() < count)
        {
            m_spares.push_back(std::make_unique<tSegmentBlock>());
            m_spares.back()->prefault();
        }
    }

private:
    void addBlock(std::size_t len)
    {
        std::unique_ptr<tSegmentBlock> block;
        if (len + sizeof(tSegmentEntry) > tSegmentBlock::cDefaultSize)
            block = std::make_unique<tSegmentBlock>(len + 2 * sizeof(tSegmentEntry));
        else if (m_spares.empty())
            block = std::make_unique<tSegmentBlock>();
        else
        {
            block = std::move(m_spares.back());
            m_spares.pop_back();
        }
        m_queued.push_back(std::move(block));
    }

    tSegmentBlocks m_queued;
    tSegmentBlocks m_spares;
    std::size_t m_count = 0;
    std::size_t m_bytes = 0;
};

#endif
