// What the benchmarks share: medians of several runs, and a refusal where figures would mean nothing.
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

// The value below which `share` of the values lie.
inline double percentile(std::vector<double>& values, double share)
{
    const auto place = static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), values.begin() + place, values.end());
    return values[static_cast<std::size_t>(place)];
}

// Says what is measured, and ends the program where the build makes figures worthless.
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

// A folder of its own below `parent` (the system's temporary folder where null), gone at the end.
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
