// tPackageSplitter: cuts packages out of a byte stream and resynchronises after damage.
//
// Shapes   split() takes contiguous bytes and returns the number of bytes consumed. The caller puts the rest, always
//          less than 64 KiB, in front of the next bytes. Packages are delivered in place.
// Owner    the sink outlives the splitter.
// Threads  split() on one thread; count() and resetCount() on any, the sink's calls included.
#ifndef KESTOVA_STORAGE_PACKAGE_PACKAGESPLITTER_H
#define KESTOVA_STORAGE_PACKAGE_PACKAGESPLITTER_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "KestovaStorage/packageview.h"

class iSplitterSink
{
public:
    virtual ~iSplitterSink() = default;
    virtual void OnPackage(const char* package, std::size_t len) = 0;  // whole: head to end marker
    virtual void OnLine(const char* text) = 0;                         // a console line, its end included
    virtual int Id() const = 0;                                        // the identity that heartbeat lines show
    virtual bool GoOn() const = 0;                                     // false: split() returns early
};

// The number that the next package should have. It follows the sender's numbering, and a reset wins over a package that
// is being delivered: a number is valid only while no reset follows the one that it was stored under.
class tExpectedNumber
{
public:
    std::uint32_t number() const { return numberSince(m_resets); }
    void reset() { ++m_resets; }

    // For the splitting thread.
    std::uint32_t resets() const { return m_resets; }
    std::uint32_t numberSince(std::uint32_t resets) const
    {
        const std::uint64_t state = m_state.load(std::memory_order_acquire);
        return state >> 32 == resets ? static_cast<std::uint32_t>(state) : 0;
    }
    void store(std::uint32_t number, std::uint32_t resets)
    {
        m_state.store(std::uint64_t{resets} << 32 | number, std::memory_order_release);
    }

private:
    std::atomic<std::uint32_t> m_resets{0};
    std::atomic<std::uint64_t> m_state{0};  // in the upper half the resets when it was stored, in the lower the number
};

class tPackageSplitter
{
public:
    explicit tPackageSplitter(iSplitterSink& sink) : m_sink(sink) {}

    // Parses `bytes` and returns the number of bytes consumed.
    std::size_t split(const char* bytes, std::size_t len);

    std::uint32_t count() const { return m_expected.number(); }
    void resetCount() { m_expected.reset(); }

private:
    std::size_t parseOne(const char* bytes, std::size_t len);
    std::size_t takePackage(const char* bytes, std::size_t len);
    std::size_t skipBadEnd(std::uint64_t end, std::size_t len);
    std::size_t skipHeartbeat();
    std::size_t skipToNextHead(const char* bytes, std::size_t len);
    void deliver(const char* package, std::size_t len);
    void checkNumber(std::uint32_t received, std::uint32_t resets);
    template <typename... tArgs>
    void print(const char* format, tArgs... args);

    iSplitterSink& m_sink;
    tExpectedNumber m_expected;
};

#endif
