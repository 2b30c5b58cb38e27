// tHugePage: 2 MiB of memory that the kernel backs by one huge page if it has one free: one page fault and one address
// translation where pages of the usual size take 512.
#ifndef KESTOVA_STORAGE_BUFFERS_HUGEPAGE_H
#define KESTOVA_STORAGE_BUFFERS_HUGEPAGE_H

#include <cstddef>

class tHugePage
{
public:
    static constexpr std::size_t cSize = 2 * 1024 * 1024;

    tHugePage();  // throws std::bad_alloc
    ~tHugePage();
    tHugePage(const tHugePage&) = delete;
    tHugePage& operator=(const tHugePage&) = delete;

    char* bytes() const { return m_bytes; }  // zeros at first

private:
    char* m_bytes;
};

#endif
