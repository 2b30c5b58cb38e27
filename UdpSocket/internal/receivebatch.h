// tReceiveBatch: memory for up to 64 datagrams, received with one system call.
//
// Every slot fits the largest datagram, so none is ever truncated. The slots share one mapping, whose pages cost
// nothing until a datagram reaches them: a stream of spokes touches a page or two a slot. Owner: one receive thread;
// nothing is locked.
#ifndef KESTOVA_NET_RECEIVEBATCH_H
#define KESTOVA_NET_RECEIVEBATCH_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <netinet/in.h>
#include <optional>
#include <sys/socket.h>

namespace net
{
class tReceiveBatch
{
public:
    static constexpr std::size_t cCapacity = 64;

    tReceiveBatch();
    ~tReceiveBatch();
    tReceiveBatch(const tReceiveBatch&) = delete;
    tReceiveBatch& operator=(const tReceiveBatch&) = delete;

    bool valid() const { return m_arena != nullptr; }  // the memory was mapped; if not, errno was set
    // Receives the datagrams that wait; never sleeps. Returns their number, or -1 with errno set.
    int receive(int socket);

    // Of the datagrams of the last receive():
    char* data(std::size_t i) const { return m_arena + i * cStride; }
    int length(std::size_t i) const { return static_cast<int>(m_messages[i].msg_len); }
    const sockaddr_in& sender(std::size_t i) const { return m_senders[i]; }
    // Returns the kernel's running count of discarded datagrams when this one was queued; nothing while it is 0.
    std::optional<std::uint32_t> droppedBefore(std::size_t i) const;

private:
    static constexpr std::size_t cSlotSize = 65536;  // more than the 65507 bytes that fit a datagram
    // Slots at the same offset of their pages would share the same few cache lines.
    static constexpr std::size_t cStride = cSlotSize + 640;

    struct tControl
    {
        alignas(cmsghdr) char bytes[CMSG_SPACE(sizeof(std::uint32_t))];
    };
    void prepare(std::size_t i);

    char* m_arena = nullptr;
    std::size_t m_used = 0;  // messages that the last call filled in
    std::array<mmsghdr, cCapacity> m_messages{};
    std::array<iovec, cCapacity> m_buffers{};
    std::array<sockaddr_in, cCapacity> m_senders{};
    std::array<tControl, cCapacity> m_controls{};
};
}  // namespace net

#endif
