// tReceiveBatch: memory for up to 64 datagrams, received with one system call.
//
// A datagram goes into a slot that fits what is sent in one frame; the slots lie close together, since every page that
// is touched costs time. What is longer runs over into a second slot, which fits the largest datagram, and is put
// together there: none is ever truncated. The mapping's pages cost nothing until a datagram reaches them. Owner: one
// receive thread; nothing is locked.
#ifndef KESTOVA_NET_RECEIVEBATCH_H
#define KESTOVA_NET_RECEIVEBATCH_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
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
    char* data(std::size_t i) const { return m_data[i]; }
    int length(std::size_t i) const { return static_cast<int>(m_messages[i].msg_len); }
    const sockaddr_in& sender(std::size_t i) const { return m_senders[i]; }
    // What the kernel reports beside a datagram, if the socket asks for it.
    struct tReport
    {
        std::optional<std::uint32_t> dropped;  // its running count of discarded datagrams; nothing while it is 0
        std::int64_t arrived_ns = 0;           // since the epoch, by the system clock; 0: not known
    };
    tReport report(std::size_t i) const;

private:
    static constexpr std::size_t cFrameSize = 1472;  // of UDP in an Ethernet frame
    static constexpr std::size_t cSlotStride = 1536;
    static constexpr std::size_t cLongSize = 65536;  // more than the 65507 bytes that fit a datagram
    // Slots at the same offset of their pages would share the same few cache lines.
    static constexpr std::size_t cLongStride = cLongSize + 640;
    static constexpr std::size_t cArenaSize = cCapacity * (cSlotStride + cLongStride);

    char* slot(std::size_t i) const { return m_arena + i * cSlotStride; }
    char* longSlot(std::size_t i) const { return m_arena + cCapacity * cSlotStride + i * cLongStride; }
    char* joined(std::size_t i) const;
    struct tControl
    {
        alignas(cmsghdr) char bytes[CMSG_SPACE(sizeof(std::uint32_t)) + CMSG_SPACE(sizeof(timespec))];
    };
    void prepare(std::size_t i);

    char* m_arena = nullptr;
    std::size_t m_used = 0;  // messages that the last call filled in
    std::array<mmsghdr, cCapacity> m_messages{};
    std::array<std::array<iovec, 2>, cCapacity> m_buffers{};
    std::array<char*, cCapacity> m_data{};
    std::array<sockaddr_in, cCapacity> m_senders{};
    std::array<tControl, cCapacity> m_controls{};
};
}  // namespace net

#endif
