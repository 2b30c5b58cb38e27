// tDescriptor: owns one file descriptor and closes it.
#ifndef KESTOVA_COMMON_DESCRIPTOR_H
#define KESTOVA_COMMON_DESCRIPTOR_H

#include <unistd.h>
#include <utility>

namespace net
{
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

private:
    int m_fd = -1;
};
}  // namespace net

#endif
