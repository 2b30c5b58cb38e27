// tBatchQueue: a queue of byte strings, each with a 64-bit tag, in large reused blocks.
//
// Shapes   a block holds the bytes of its segments back to back from its start and, growing down from its end, one
//          entry (length, tag) each: segments of a block are contiguous and can be written with one call.
// Owner    owns its blocks. take() passes all queued blocks to the consumer, which returns them with recycle(); a few
//          blocks are kept warm, so that a steady stream allocates nothing. Four blocks share a huge page.
// Threads  none of its own and no lock: the owner's lock guards it. take() and recycle() move pointers only. Segments
//          may be filled without the lock, and the consumer waits until a block that it took is filled.
// Errors   push() throws std::bad_alloc and leaves the queue unchanged.
#ifndef KESTOVA_STORAGE_BUFFERS_BATCHQUEUE_H
#define KESTOVA_STORAGE_BUFFERS_BATCHQUEUE_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "KestovaStorage/internal/buffers/hugepage.h"

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

    explicit tSegmentBlock(std::size_t size) : tSegmentBlock(std::shared_ptr<char[]>(new char[size]), size) {}
    tSegmentBlock(std::shared_ptr<char[]> bytes, std::size_t size)
        : m_size(size & ~(alignof(tSegmentEntry) - 1)), m_bytes(std::move(bytes))
    {}

    // Where a segment goes that is filled later: the caller fills the bytes, then calls filled().
    struct tPlace
    {
        char* bytes = nullptr;
        std::uint64_t* len = nullptr;  // of its entry

        // Any thread, once. A store alone: it waits for none of those before it.
        void filled() const
        {
            std::atomic_ref stored(*len);
            stored.store(stored.load(std::memory_order_relaxed) & ~cUnfilled, std::memory_order_release);
        }
    };

    bool fits(std::size_t len) const { return len <= room() && room() - len >= sizeof(tSegmentEntry); }
    // Returns room for `len` bytes, which the caller fills before others see the block; requires fits(len).
    char* push(std::size_t len, std::uint64_t tag) { return push(tSegmentEntry{len, tag}, len).bytes; }
    tPlace pushUnfilled(std::size_t len, std::uint64_t tag) { return push(tSegmentEntry{len | cUnfilled, tag}, len); }
    // Consumer: returns whether segment number `i` is filled. Its bytes and its entry may be read from then on.
    bool isFilled(std::size_t i) const
    {
        return (std::atomic_ref(*lenOf(i)).load(std::memory_order_acquire) & cUnfilled) == 0;
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
        std::memcpy(&entry, lenOf(i), sizeof entry);
        return entry;
    }

private:
    static constexpr std::uint64_t cUnfilled = std::uint64_t{1} << 63;  // in the length of an entry

    tPlace push(const tSegmentEntry& entry, std::size_t len)
    {
        char* const place = m_bytes.get() + m_used;
        m_used += len;
        ++m_count;
        std::memcpy(lenOf(m_count - 1), &entry, sizeof entry);
        return {place, lenOf(m_count - 1)};
    }
    std::uint64_t* lenOf(std::size_t i) const
    {
        static_assert(offsetof(tSegmentEntry, len) == 0);
        return reinterpret_cast<std::uint64_t*>(m_bytes.get() + m_size - (i + 1) * sizeof(tSegmentEntry));
    }
    std::size_t room() const { return m_size - m_used - m_count * sizeof(tSegmentEntry); }

    std::size_t m_size;
    std::shared_ptr<char[]> m_bytes;
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

    // Queues a segment of `len` bytes, which the caller fills with or without its lock.
    tSegmentBlock::tPlace push(std::size_t len, std::uint64_t tag)
    {
        if (m_queued.empty() || !m_queued.back()->fits(len))
            addBlock(len);
        ++m_count;
        m_bytes += len;
        return m_queued.back()->pushUnfilled(len, tag);
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
        for (std::size_t touched = m_spares.size(); touched < count; ++touched)
        {
            if (touched == m_spares.size())
                addSpares();
            m_spares[touched]->prefault();
        }
    }

private:
    void addBlock(std::size_t len)
    {
        std::unique_ptr<tSegmentBlock> block;
        if (len + sizeof(tSegmentEntry) > tSegmentBlock::cDefaultSize)
            block = std::make_unique<tSegmentBlock>(len + 2 * sizeof(tSegmentEntry));
        else
        {
            if (m_spares.empty())
                addSpares();
            block = std::move(m_spares.back());
            m_spares.pop_back();
        }
        m_queued.push_back(std::move(block));
    }

    // Blocks keep their page: it is unmapped when the last of them is freed.
    void addSpares()
    {
        const auto page = std::make_shared<tHugePage>();
        for (std::size_t begin = 0; begin < tHugePage::cSize; begin += tSegmentBlock::cDefaultSize)
            m_spares.push_back(std::make_unique<tSegmentBlock>(std::shared_ptr<char[]>(page, page->bytes() + begin),
                                                               tSegmentBlock::cDefaultSize));
    }

    tSegmentBlocks m_queued;
    tSegmentBlocks m_spares;
    std::size_t m_count = 0;
    std::size_t m_bytes = 0;
};

#endif
