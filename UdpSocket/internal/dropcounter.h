// tDropCounter: how many datagrams the kernel discarded, in 64 bits, from a kernel counter of 32.
//
// The kernel reports its running count with a datagram (the count when that one was queued) and on request (the count
// now). Values may therefore arrive out of order; an older one changes nothing. The kernel counter wraps; the low 32
// bits of the total are always its newest value. Any thread, no lock.
#ifndef KESTOVA_NET_DROPCOUNTER_H
#define KESTOVA_NET_DROPCOUNTER_H

#include <atomic>
#include <cstdint>

namespace net
{
class tDropCounter
{
public:
    void update(std::uint32_t kernelCount)
    {
        std::uint64_t known = m_total.load(std::memory_order_relaxed);
        for (;;)
        {
            const auto newer = static_cast<std::int32_t>(kernelCount - static_cast<std::uint32_t>(known));
            if (newer <= 0)
                return;
            if (m_total.compare_exchange_weak(known, known + static_cast<std::uint32_t>(newer),
                                              std::memory_order_relaxed))
                return;
        }
    }
    std::uint64_t total() const { return m_total.load(std::memory_order_relaxed); }

private:
    std::atomic<std::uint64_t> m_total{0};
};
}  // namespace net

#endif
