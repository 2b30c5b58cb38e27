// The messages of a recording or a capture on their way to a comparison: one at a time, and many in a block.
//
// Owner    a block owns the bytes of its messages; a message points into it.
// Threads  none; one at a time.
#ifndef KESTOVA_RECORDINGS_INTERNAL_MESSAGES_H
#define KESTOVA_RECORDINGS_INTERNAL_MESSAGES_H

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include "KestovaRecordings/streamcounts.h"

namespace recordings
{
// A stream as one number, in the order of tStreamKey. 0 is the stream of raw segments.
using tStreamNumber = std::uint64_t;

inline tStreamNumber streamNumber(const tStreamKey& key)
{
    return key.package ? std::uint64_t{1} << 56 | std::uint64_t{key.kind} << 48 |
                             std::uint64_t{key.addressOrder} << 16 | key.port
                       : 0;
}

inline tStreamKey streamOf(tStreamNumber number)
{
    if (number == 0)
        return tStreamKey::raw();
    return {true, static_cast<tReadWriteType>(number >> 48), static_cast<std::uint32_t>(number >> 16),
            static_cast<std::uint16_t>(number)};
}

struct tMessage
{
    tStreamNumber stream = 0;
    std::int64_t timeUs = 0;  // since the Unix epoch
    std::string_view bytes{};
};

class tMessageBlock
{
public:
    static constexpr std::size_t cBytes = 256 * 1024;  // a block is full from here on

    void add(const tMessage& message)
    {
        m_entries.push_back({message.stream, message.timeUs, m_bytes.size(), message.bytes.size()});
        m_bytes.insert(m_bytes.end(), message.bytes.begin(), message.bytes.end());
    }
    void clear()
    {
        m_entries.clear();
        m_bytes.clear();
    }
    bool isFull() const { return m_bytes.size() >= cBytes || m_entries.size() >= cMessages; }
    std::size_t count() const { return m_entries.size(); }
    std::size_t capacity() const { return m_bytes.capacity(); }
    tMessage message(std::size_t i) const
    {
        const tEntry& entry = m_entries[i];
        return {entry.stream, entry.timeUs, {m_bytes.data() + entry.pos, entry.len}};
    }

private:
    static constexpr std::size_t cMessages = 4096;

    struct tEntry
    {
        tStreamNumber stream;
        std::int64_t timeUs;
        std::size_t pos, len;
    };
    std::vector<tEntry> m_entries;
    std::vector<char> m_bytes;
};

// Takes messages, a block at a time.
class iMessageSink
{
public:
    virtual ~iMessageSink() = default;
    // Takes what is in the block and leaves an empty one there. Returns false if no more is wanted.
    virtual bool deliver(tMessageBlock& block) = 0;
    // The part that has been read, from 0 to 1.
    virtual void advanceTo(double fraction) = 0;
};

// Fills blocks for a sink.
class tMessageWriter
{
public:
    explicit tMessageWriter(iMessageSink& sink) : m_sink(sink) {}

    // Returns false if no more is wanted.
    bool add(const tMessage& message)
    {
        m_block.add(message);
        return !m_block.isFull() || flush();
    }
    bool flush() { return m_block.count() == 0 || m_sink.deliver(m_block); }
    void advanceTo(double fraction) { m_sink.advanceTo(fraction); }

private:
    iMessageSink& m_sink;
    tMessageBlock m_block;
};
}  // namespace recordings

#endif
