// tByteRegion: memory mapped from the kernel, for buffers that are small most of the time and huge now and then. It
// grows without copying its contents; a smaller size returns memory to the kernel at once.
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
    // Resizes to at least `size` bytes and keeps what fits of the contents. Growing throws std::bad_alloc if the kernel
    // refuses, and leaves the region unchanged; shrinking never fails.
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
