#include "KestovaStorage/internal/slotarray.h"

#include <new>
#include <sys/mman.h>

namespace storage
{
namespace
{
constexpr std::size_t cHugePage = std::size_t{2} << 20;
}

tSlotArray::tSlotArray(std::size_t count)
{
    const std::size_t bytes = count * cIndexSlotSize;
    if (bytes < cHugePage)
    {
        m_slots.reset(new tIndexSlot[count]);
        return;
    }
    void* const memory = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        throw std::bad_alloc();
    ::madvise(memory, bytes, MADV_HUGEPAGE);  // a wish: without huge pages it works all the same
    m_slots = {static_cast<tIndexSlot*>(memory), tReleaseSlots{bytes}};
}

void tReleaseSlots::operator()(tIndexSlot* slots) const
{
    if (mappedBytes == 0)
        delete[] slots;
    else
        ::munmap(slots, mappedBytes);
}
}  // namespace storage
