// tPackageSplitter: cuts packages out of a byte stream and finds its way again after damage.
//
// Shapes   is given contiguous bytes and says how many of them it is done with; the caller puts the rest, always less
//          than 64 KiB, in front of what comes next. Packages are handed over in place.
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
    virtual bool GoOn() const = 0;                                     // false: split() returns where it is
};

// The number that the next package should have. It follows the sender's numbering, and a reset wins over a package that
// is being handed over: a number counts only while no reset came since the one that it was stored under.
class tExpectedNumber
{
public:
    std::uint32_t number() const { return numberSince(m_resets); }
    void reset() { ++m_resets; }

    // The splitting thread's.
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

    // Handles what `bytes` holds and returns the number of bytes that are done with.
    std::size_t split(const char* bytes, std::size_t len);

    std::uint32_t count() const { return m_expected.number(); }
    void resetCount() { m_expected.reset(); }

private:
    std::size_t step(const char* bytes, std::size_t len);
    std::size_t stepPackage(const char* bytes, std::size_t len);
    std::size_t stepBadEnd(std::uint64_t end, std::size_t len);
    std::size_t stepHeartbeat();
    std::size_t stepToNextHead(const char* bytes, std::size_t len);
    void deliver(const char* package, std::size_t len);
    void meet(std::uint32_t received, std::uint32_t resets);
    template <typename... tArgs>
    void print(const char* format, tArgs... args);

    iSplitterSink& m_sink;
    tExpectedNumber m_expected;
};

#endif
