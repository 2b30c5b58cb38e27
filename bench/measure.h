// Shared by the benchmarks: medians of several runs, and a check that the build gives valid figures.
#ifndef KESTOVA_BENCH_MEASURE_H
#define KESTOVA_BENCH_MEASURE_H

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <unistd.h>

namespace bench
{
using tClock = std::chrono::steady_clock;

inline double secondsSince(tClock::time_point start)
{
    return std::chrono::duration<double>(tClock::now() - start).count();
}

struct tFigures
{
    double low, median, high;
};

inline tFigures figuresOf(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return {values.front(), values[values.size() / 2], values.back()};
}

// Returns the value that `share` of the values are below.
inline double percentile(std::vector<double>& values, double share)
{
    const auto place = static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), values.begin() + place, values.end());
    return values[static_cast<std::size_t>(place)];
}

// Prints what is measured. Ends the program if the build has assertions or sanitizers.
inline void announce(const char* what)
{
#ifndef NDEBUG
    constexpr bool cAssertions = true;
#else
    constexpr bool cAssertions = false;
#endif
    if (cAssertions || KESTOVA_SANITIZED[0] != '\0')
    {
        std::fprintf(stderr, "built with assertions or sanitizers: figures would mean nothing\n");
        std::exit(1);
    }
    std::printf("%s (build type %s)\n", what, KESTOVA_BUILD_TYPE);
}

// A folder of its own below `parent` (null: the system's temporary folder), removed by the destructor.
class tScratch
{
public:
    explicit tScratch(const char* parent)
        : m_path((parent != nullptr ? std::filesystem::path(parent) : std::filesystem::temp_directory_path()) /
                 ("kestova_bench_" + std::to_string(::getpid())))
    {
        std::filesystem::create_directories(m_path);
    }
    ~tScratch() { std::filesystem::remove_all(m_path); }
    tScratch(const tScratch&) = delete;
    tScratch& operator=(const tScratch&) = delete;

    std::string path() const { return m_path.string() + "/"; }

private:
    std::filesystem::path m_path;
};
}  // namespace bench

#endif
