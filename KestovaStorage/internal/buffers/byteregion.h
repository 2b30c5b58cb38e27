// tByteRegion: memory straight from the kernel, for buffers that are small most of the time and huge now and then: it
// grows without copying what it holds, and what it no longer needs goes back at once.
#ifndef KESTOVA_STORAGE_BUFFERS_BYTEREGION_H
#define KESTOVA_STORAGE_BUFFERS_BYTEREGION_H

#include <cstddef>
#include <utility>

class tByteRegion
{
public:
    tByteRegion() = default;
    explicit tByteRegion(std::size_t size) { resize(size); }
    ~tByteRegion() { resize(0); }
    tByteRegion(tByteRegion&& other) noexcept { swap(other); }
    tByteRegion(const tByteRegion&) = delete;
    tByteRegion& operator=(const tByteRegion&) = delete;

    char* bytes() const { return m_bytes; }
    std::size_t size() const { return m_size; }
    // At least `size` bytes, what fits of the contents is kept. std::bad_alloc when the kernel has no more; the region
    // is as it was then. Becoming smaller never fails.
    void resize(std::size_t size);
    void swap(tByteRegion& other) noexcept
    {
        std::swap(m_bytes, other.m_bytes);
        std::swap(m_size, other.m_size);
    }

private:
    char* m_bytes = nullptr;
    std::size_t m_size = 0;
};

#endif
