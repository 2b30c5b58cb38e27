// tSlotArray: memory for many index records; pages that are never touched cost nothing.
//
// A full index fills some 10 MB. Large arrays come straight from the kernel and ask for huge pages: a handful of page
// faults a file instead of thousands, which is half the time of opening it.
#ifndef KESTOVA_INTERNAL_SLOTARRAY_H
#define KESTOVA_INTERNAL_SLOTARRAY_H

#include <cstddef>
#include <memory>

#include "KestovaStorage/internal/storageformat.h"

namespace storage
{
struct tReleaseSlots
{
    std::size_t mappedBytes = 0;  // 0: from new
    void operator()(tIndexSlot* slots) const;
};

class tSlotArray
{
public:
    tSlotArray() = default;
    explicit tSlotArray(std::size_t count);  // contents are undefined; std::bad_alloc where there is no memory

    tIndexSlot* get() const { return m_slots.get(); }
    tIndexSlot& operator[](std::size_t i) const { return m_slots[i]; }

private:
    std::unique_ptr<tIndexSlot[], tReleaseSlots> m_slots;
};
}  // namespace storage

#endif
