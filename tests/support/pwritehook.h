// tPwriteHook: stands between the whole program and pwrite while it lives, to see, delay, fake or fail each write.
//
// One at a time. Writes already under way when it ends may still be inside the handler. Include in one source only: it
// takes the place of the C library's pwrite.
#ifndef KESTOVA_TESTS_PWRITEHOOK_H
#define KESTOVA_TESTS_PWRITEHOOK_H

#include <atomic>
#include <functional>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>
#include <utility>

class tPwriteHook
{
public:
    using tHandler = std::function<ssize_t(int file, const void* data, std::size_t len, off_t pos)>;

    explicit tPwriteHook(tHandler handler) : m_handler(std::move(handler)) { current() = this; }
    ~tPwriteHook() { current() = nullptr; }
    tPwriteHook(const tPwriteHook&) = delete;
    tPwriteHook& operator=(const tPwriteHook&) = delete;

    // What pwrite does without a hook.
    static ssize_t write(int file, const void* data, std::size_t len, off_t pos)
    {
        return ::syscall(SYS_pwrite64, file, data, len, pos);
    }
    static ssize_t dispatch(int file, const void* data, std::size_t len, off_t pos)
    {
        tPwriteHook* const hook = current();
        return hook != nullptr ? hook->m_handler(file, data, len, pos) : write(file, data, len, pos);
    }

private:
    static std::atomic<tPwriteHook*>& current()
    {
        static std::atomic<tPwriteHook*> s_current{nullptr};
        return s_current;
    }

    tHandler m_handler;
};

extern "C" ssize_t pwrite(int file, const void* data, std::size_t len, off_t pos)
{
    return tPwriteHook::dispatch(file, data, len, pos);
}

#endif
