#include "KestovaStorage/internal/buffers/hugepage.h"

#include <cstdint>
#include <new>

#include <sys/mman.h>

// A huge page begins at a multiple of its size. The kernel promises no such place: twice as much is mapped, and what
// lies beside it is given back.
tHugePage::tHugePage()
{
    void* const mapped = ::mmap(nullptr, 2 * cSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED)
        throw std::bad_alloc();
    char* const begin = static_cast<char*>(mapped);
    const std::size_t before = (cSize - reinterpret_cast<std::uintptr_t>(begin) % cSize) % cSize;
    m_bytes = begin + before;
    if (before != 0)
        ::munmap(begin, before);
    ::munmap(m_bytes + cSize, cSize - before);
    ::madvise(m_bytes, cSize, MADV_HUGEPAGE);  // only a hint
}

tHugePage::~tHugePage()
{
    ::munmap(m_bytes, cSize);
}
