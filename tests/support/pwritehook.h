// tPwriteHook: stands between the storage engine and its positioned writes while it lives, to see, delay, change or
// fail each of them.
//
// For tests that link the object files: the shared library has system calls of its own. One at a time. Its destruction
// waits until no write is inside the handler.
#ifndef KESTOVA_TESTS_PWRITEHOOK_H
#define KESTOVA_TESTS_PWRITEHOOK_H

#include <cerrno>
#include <functional>
#include <mutex>
#include <shared_mutex>
#include <utility>

#include "common/descriptor.h"

class tPwriteHook
{
public:
    using tHandler = std::function<ssize_t(int file, const void* data, std::size_t len, off_t pos)>;

    explicit tPwriteHook(tHandler handler)
    {
        s_handler = std::move(handler);
        tFileCalls::s_write = dispatch;
    }
    ~tPwriteHook()
    {
        tFileCalls::s_write = write;
        const std::unique_lock<std::shared_mutex> nobodyInside(s_mutex);
        s_handler = nullptr;
    }
    tPwriteHook(const tPwriteHook&) = delete;
    tPwriteHook& operator=(const tPwriteHook&) = delete;

    // What a write does without a hook.
    static ssize_t write(int file, const void* data, std::size_t len, off_t pos)
    {
        return ::pwrite(file, data, len, pos);
    }
    // A disk without room for what lies from `from` to `to` in a file.
    static tHandler noRoom(std::uint64_t from, std::uint64_t to)
    {
        return [from, to](int file, const void* data, std::size_t len, off_t pos) -> ssize_t {
            const auto begin = static_cast<std::uint64_t>(pos);
            if (begin + len <= from || begin >= to)
                return write(file, data, len, pos);
            if (begin < from)
                return write(file, data, from - begin, pos);
            errno = ENOSPC;
            return -1;
        };
    }

private:
    static ssize_t dispatch(int file, const void* data, std::size_t len, off_t pos)
    {
        const std::shared_lock<std::shared_mutex> inside(s_mutex);
        return s_handler ? s_handler(file, data, len, pos) : write(file, data, len, pos);
    }

    static inline std::shared_mutex s_mutex;
    static inline tHandler s_handler;  // guarded by s_mutex
};

#endif
