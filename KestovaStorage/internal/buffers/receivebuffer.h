// tReceiveBuffer: received bytes on their way to a parser that needs them contiguous.
//
// Shapes   two regions: bytes are received into one while the other is parsed; take() swaps them. In front of a
//          region's bytes there is room for the unfinished rest of the one before, so every byte is copied once, and
//          only a rest a second time. A few bytes are appended to a long rest instead.
// Owner    owns the regions, which grow with a backlog until they are cut back.
// Threads  none of its own and no lock. append(), empty(), clear() and shrinkReceived() belong to the receiving side;
//          bytes(), len(), done() and shrinkParsed() to the parsing side; take() and takeBack() need both sides.
// Errors   append() throws std::bad_alloc and leaves the buffer unchanged.
#ifndef KESTOVA_STORAGE_BUFFERS_RECEIVEBUFFER_H
#define KESTOVA_STORAGE_BUFFERS_RECEIVEBUFFER_H

#include <cstddef>
#include <utility>

#include "KestovaStorage/internal/buffers/byteregion.h"

class tReceiveBuffer
{
public:
    static constexpr std::size_t cHeadroom = 64 * 1024;         // longest rest that take() can carry over
    static constexpr std::size_t cUsualSize = 512 * 1024;       // of a region, its headroom included
    static constexpr std::size_t cKeptSize = 20 * 1024 * 1024;  // what a region may keep after a large backlog

    void append(const char* bytes, std::size_t len);
    bool empty() const { return m_received.begin == m_received.end; }
    void clear();
    // Passes all received bytes to the parsing side, behind its unfinished rest.
    void take();
    // Drops what the last take() passed; requires that none of it was parsed since.
    void takeBack() { m_parsed.end -= std::exchange(m_taken, 0); }

    const char* bytes() const { return m_parsed.region.bytes() + m_parsed.begin; }
    std::size_t len() const { return m_parsed.end - m_parsed.begin; }
    // The first `count` bytes are parsed; at most cHeadroom bytes are left.
    void done(std::size_t count) { m_parsed.begin += count; }
    // Return memory that a large backlog needed: the parsing side's at once; the receiving side, which is empty,
    // returns its region to the caller, who frees it without a lock.
    void shrinkParsed();
    tByteRegion shrinkReceived();
    std::size_t memory() const { return m_received.region.size() + m_parsed.region.size(); }

private:
    struct tHalf
    {
        tByteRegion region;
        std::size_t begin = cHeadroom;
        std::size_t end = cHeadroom;

        std::size_t len() const { return end - begin; }
        std::size_t room() const { return region.size() < end ? 0 : region.size() - end; }
        void append(const char* bytes, std::size_t count);
    };

    tHalf m_received;
    alignas(64) tHalf m_parsed;
    std::size_t m_taken = 0;  // bytes that the last take() passed
};

#endif
