// What fuzz targets share: a check that ends the process, pieces taken from the front of the input, and files of it.
#ifndef KESTOVA_TESTS_FUZZ_H
#define KESTOVA_TESTS_FUZZ_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

inline void require(bool holds)
{
    if (!holds)
        std::abort();
}

// Takes up to `count` bytes from the front.
inline std::string_view take(std::string_view& bytes, std::size_t count)
{
    const std::string_view piece = bytes.substr(0, count);
    bytes.remove_prefix(piece.size());
    return piece;
}

// 0 where none is left.
inline std::uint8_t takeByte(std::string_view& bytes)
{
    const std::string_view piece = take(bytes, 1);
    return piece.empty() ? 0 : static_cast<std::uint8_t>(piece.front());
}

// A file in memory, empty at first.
class tMemoryFile
{
public:
    tMemoryFile() : m_fd(::memfd_create("fuzz", MFD_CLOEXEC)) { require(m_fd >= 0); }
    ~tMemoryFile() { ::close(m_fd); }
    tMemoryFile(const tMemoryFile&) = delete;
    tMemoryFile& operator=(const tMemoryFile&) = delete;

    void put(std::uint64_t pos, const void* data, std::size_t len) const
    {
        require(::pwrite(m_fd, data, len, static_cast<off_t>(pos)) == static_cast<ssize_t>(len));
    }
    void put(std::uint64_t pos, std::string_view bytes) const { put(pos, bytes.data(), bytes.size()); }
    std::string path() const { return "/proc/self/fd/" + std::to_string(m_fd); }

private:
    const int m_fd;
};

#endif
