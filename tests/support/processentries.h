// What this process holds: a test counts it before and after to find what was left behind.
#ifndef KESTOVA_TESTS_PROCESSENTRIES_H
#define KESTOVA_TESTS_PROCESSENTRIES_H

#include <cstddef>
#include <filesystem>
#include <iterator>

inline std::ptrdiff_t openDescriptors()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}
inline std::ptrdiff_t runningThreads()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

#endif
