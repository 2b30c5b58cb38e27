// tMessageQueue: what a comparison keeps of the messages of a stream that wait for their counterparts.
#ifndef KESTOVA_RECORDINGS_INTERNAL_MESSAGEQUEUE_H
#define KESTOVA_RECORDINGS_INTERNAL_MESSAGEQUEUE_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace recordings
{
struct tWaitingMessage
{
    std::uint64_t hash;  // of its bytes: equal hashes stand for equal messages
    std::int64_t timeUs;
};

class tMessageQueue
{
public:
    std::size_t size() const { return m_messages.size() - m_begin; }
    bool empty() const { return size() == 0; }
    const tWaitingMessage& operator[](std::size_t i) const { return m_messages[m_begin + i]; }
    std::span<const tWaitingMessage> all() const { return {m_messages.data() + m_begin, size()}; }

    void push(const tWaitingMessage& message) { m_messages.push_back(message); }
    void pop(std::size_t count)
    {
        m_begin += count;
        if (m_begin < m_messages.size() && (m_begin < cRoom || m_begin * 2 < m_messages.size()))
            return;
        m_messages.erase(m_messages.begin(), m_messages.begin() + static_cast<std::ptrdiff_t>(m_begin));
        m_begin = 0;
        if (m_messages.empty() && m_messages.capacity() > cRoom)
            m_messages = {};
    }

private:
    static constexpr std::size_t cRoom = 4096;  // kept while empty

    std::vector<tWaitingMessage> m_messages;
    std::size_t m_begin = 0;
};
}  // namespace recordings

#endif
