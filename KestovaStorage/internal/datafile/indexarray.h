// tIndexArray: memory for many index records. Untouched memory costs nothing; shrink() returns the rest.
//
// A full index takes some 10 MB: large arrays are mapped from the kernel, in huge pages if available, which halves the
// time of opening a file. Small ones come from the heap, so that a hundred thousand files can be open.
#ifndef KESTOVA_STORAGE_DATAFILE_INDEXARRAY_H
#define KESTOVA_STORAGE_DATAFILE_INDEXARRAY_H

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>

#include "KestovaStorage/datafileformat.h"
#include "KestovaStorage/internal/buffers/byteregion.h"

namespace storage
{
class tIndexArray
{
public:
    tIndexArray() = default;
    // Contents are undefined. Throws std::bad_alloc.
    explicit tIndexArray(std::size_t count)
    {
        if (count < cLargeFrom)
            m_small.reset(new tIndexSlot[count]);
        else
            m_large.resize(count * cIndexSlotSize);
    }
    tIndexArray(tIndexArray&& other) noexcept : m_small(std::move(other.m_small)) { m_large.swap(other.m_large); }
    tIndexArray& operator=(tIndexArray&& other) noexcept
    {
        m_small.swap(other.m_small);
        m_large.swap(other.m_large);
        return *this;
    }

    tIndexSlot* get() const { return m_small ? m_small.get() : reinterpret_cast<tIndexSlot*>(m_large.bytes()); }
    tIndexSlot& operator[](std::size_t i) const { return get()[i]; }

    // Returns the memory behind the first `count` records.
    void shrink(std::size_t count)
    {
        if (count < cLargeFrom)
        {
            tIndexArray exact(count);
            std::copy_n(get(), count, exact.get());
            *this = std::move(exact);
        }
        else
            m_large.resize(count * cIndexSlotSize);
    }

private:
    static constexpr std::size_t cLargeFrom = (std::size_t{1} << 20) / cIndexSlotSize;

    std::unique_ptr<tIndexSlot[]> m_small;
    tByteRegion m_large;
};
}  // namespace storage

#endif
