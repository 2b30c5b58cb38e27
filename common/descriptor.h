// tDescriptor: owns one file descriptor, closes it, and reads and writes whole stretches of a file through it.
#ifndef KESTOVA_COMMON_DESCRIPTOR_H
#define KESTOVA_COMMON_DESCRIPTOR_H

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <sys/types.h>
#include <unistd.h>
#include <utility>

// The system calls behind every positioned read and write of this project. Tests replace them to make a disk fail, be
// full or slow; nothing else does.
struct tFileCalls
{
    using tRead = ssize_t (*)(int file, void* to, std::size_t len, off_t pos);
    using tWrite = ssize_t (*)(int file, const void* data, std::size_t len, off_t pos);

    static inline std::atomic<tRead> s_read{::pread};
    static inline std::atomic<tWrite> s_write{::pwrite};
};

class tDescriptor
{
public:
    tDescriptor() = default;
    explicit tDescriptor(int fd) : m_fd(fd) {}
    ~tDescriptor() { reset(); }
    tDescriptor(tDescriptor&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    tDescriptor& operator=(tDescriptor&& other) noexcept
    {
        std::swap(m_fd, other.m_fd);
        return *this;
    }

    int get() const { return m_fd; }
    bool valid() const { return m_fd >= 0; }
    void reset()
    {
        if (valid())
            ::close(std::exchange(m_fd, -1));
    }

    // Reads up to `len` bytes at `pos`. Returns the number of bytes read before the end of the file or an error; errno
    // is 0 at the end.
    std::size_t readAt(void* to, std::size_t len, std::uint64_t pos) const
    {
        return transfer(len, [&](std::size_t done) {
            return tFileCalls::s_read.load(std::memory_order_relaxed)(m_fd, static_cast<char*>(to) + done, len - done,
                                                                      static_cast<off_t>(pos + done));
        });
    }
    bool readAllAt(void* to, std::size_t len, std::uint64_t pos) const { return readAt(to, len, pos) == len; }

    // Writes `len` bytes at `pos`. Returns the number of bytes written before an error, and sets errno.
    std::size_t writeAt(const void* data, std::size_t len, std::uint64_t pos) const
    {
        return transfer(len, [&](std::size_t done) {
            return tFileCalls::s_write.load(std::memory_order_relaxed)(m_fd, static_cast<const char*>(data) + done,
                                                                       len - done, static_cast<off_t>(pos + done));
        });
    }
    bool writeAllAt(const void* data, std::size_t len, std::uint64_t pos) const
    {
        return writeAt(data, len, pos) == len;
    }

private:
    // Repeats a call that may be interrupted or do a part only, until all is done or nothing more comes.
    template <typename tCall>
    static std::size_t transfer(std::size_t len, tCall call)
    {
        std::size_t done = 0;
        while (done < len)
        {
            errno = 0;
            const ssize_t count = call(done);
            if (count > 0)
                done += static_cast<std::size_t>(count);
            else if (count == 0 || errno != EINTR)
                break;
        }
        return done;
    }

    int m_fd = -1;
};

#endif
