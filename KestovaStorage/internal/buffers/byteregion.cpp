#include "KestovaStorage/internal/buffers/byteregion.h"

#include <limits>
#include <new>

#include <sys/mman.h>

namespace
{
constexpr std::size_t cStep = 64 * 1024;            // a multiple of every page size in use
constexpr std::size_t cHugeFrom = 2 * 1024 * 1024;  // from here on huge pages are requested: fewer page faults
}  // namespace

void tByteRegion::resize(std::size_t size)
{
    if (size > std::numeric_limits<std::size_t>::max() - cStep)
        throw std::bad_alloc();
    const std::size_t wanted = (size + cStep - 1) / cStep * cStep;
    if (wanted == m_size)
        return;
    if (wanted == 0)
    {
        ::munmap(m_bytes, m_size);
        m_bytes = nullptr;
        m_size = 0;
        return;
    }
    void* const moved = m_size == 0
                            ? ::mmap(nullptr, wanted, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)
                            : ::mremap(m_bytes, m_size, wanted, MREMAP_MAYMOVE);
    if (moved == MAP_FAILED && wanted < m_size)
        return;  // a larger region is correct, too
    if (moved == MAP_FAILED)
        throw std::bad_alloc();
    m_bytes = static_cast<char*>(moved);
    m_size = wanted;
    if (m_size >= cHugeFrom)
        ::madvise(m_bytes, m_size, MADV_HUGEPAGE);  // only a hint
}
