// tDescriptor: owns one file descriptor and closes it.
#ifndef KESTOVA_INTERNAL_DESCRIPTOR_H
#define KESTOVA_INTERNAL_DESCRIPTOR_H

#include <unistd.h>
#include <utility>

class tDescriptor
{
public:
    tDescriptor() = default;
    explicit tDescriptor(int fd) : m_fd(fd) {}
    ~tDescriptor() { reset(); }
    tDescriptor(tDescriptor&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    tDescriptor& operator=(tDescriptor&& other) noexcept
    {
        if (this != &other)
        {
            reset();
            m_fd = std::exchange(other.m_fd, -1);
        }
        return *this;
    }

    int get() const { return m_fd; }
    explicit operator bool() const { return m_fd >= 0; }
    void reset()
    {
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = -1;
    }

private:
    int m_fd = -1;
};

#endif
