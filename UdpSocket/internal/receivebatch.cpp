#include "UdpSocket/internal/receivebatch.h"

#include <cstring>
#include <sys/mman.h>

namespace net
{
tReceiveBatch::tReceiveBatch()
{
    void* memory =
        ::mmap(nullptr, cArenaSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED)
        return;
    // One small datagram must not make two megabytes resident.
    ::madvise(memory, cArenaSize, MADV_NOHUGEPAGE);
    m_arena = static_cast<char*>(memory);
    for (std::size_t i = 0; i < cCapacity; ++i)
    {
        m_buffers[i] = {iovec{slot(i), cFrameSize}, iovec{longSlot(i) + cFrameSize, cLongSize - cFrameSize}};
        prepare(i);
    }
}

tReceiveBatch::~tReceiveBatch()
{
    if (m_arena != nullptr)
        ::munmap(m_arena, cArenaSize);
}

// Every call of recvmmsg overwrites the lengths.
void tReceiveBatch::prepare(std::size_t i)
{
    msghdr& head = m_messages[i].msg_hdr;
    head.msg_name = &m_senders[i];
    head.msg_namelen = sizeof(sockaddr_in);
    head.msg_iov = m_buffers[i].data();
    head.msg_iovlen = m_buffers[i].size();
    head.msg_control = &m_controls[i];
    head.msg_controllen = sizeof(tControl);
}

int tReceiveBatch::receive(int socket)
{
    for (std::size_t i = 0; i < m_used; ++i)
        prepare(i);
    const int received = ::recvmmsg(socket, m_messages.data(), cCapacity, MSG_DONTWAIT, nullptr);
    // A failed call may have filled in the first message.
    m_used = received > 0 ? static_cast<std::size_t>(received) : 1;
    for (std::size_t i = 0; received > 0 && i < m_used; ++i)
        m_data[i] = m_messages[i].msg_len <= cFrameSize ? slot(i) : joined(i);
    return received;
}

// The part of a long datagram that lies in the first slot, put before the rest.
char* tReceiveBatch::joined(std::size_t i) const
{
    std::memcpy(longSlot(i), slot(i), cFrameSize);
    return longSlot(i);
}

tReceiveBatch::tReport tReceiveBatch::report(std::size_t i) const
{
    tReport report;
    msghdr head = m_messages[i].msg_hdr;
    for (cmsghdr* control = CMSG_FIRSTHDR(&head); control != nullptr; control = CMSG_NXTHDR(&head, control))
    {
        if (control->cmsg_level == SOL_SOCKET && control->cmsg_type == SO_RXQ_OVFL)
        {
            std::uint32_t count = 0;
            std::memcpy(&count, CMSG_DATA(control), sizeof count);
            report.dropped = count;
        }
        if (control->cmsg_level == SOL_SOCKET && control->cmsg_type == SCM_TIMESTAMPNS)
        {
            timespec stamp{};
            std::memcpy(&stamp, CMSG_DATA(control), sizeof stamp);
            report.arrived_ns = std::int64_t{stamp.tv_sec} * 1'000'000'000 + stamp.tv_nsec;
        }
    }
    return report;
}
}  // namespace net
