// How fast the package builder and splitter are, compared with copying the same bytes.
//
//   package_bench
//
// Splitting: a stream of 583-byte packages (542 bytes of payload, as a radar's spoke has) is fed in chunks of 64 KiB
// through LoadRecBuff; a run lasts until the last package was delivered, by the parse thread or, for the kinds that go
// through its queue, by the pop thread. The yardstick is one memcpy of the same 256 MiB from memory to memory. Small
// packages: the cost of one 41-byte package when 16 MiB of them come in one call, and when 64 KiB do.
// Building: the cost of one BuildPackage call of a spoke, at full rate, until the last one was delivered.
//
// Every figure is the median of seven runs, with the lowest and the highest. The library's own console lines, which it
// writes at such a rate, go to /dev/null; they are part of the measured time.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <unistd.h>

#include "KestovaStorage/internal/package/packageformat.h"
#include "KestovaStorage/packagebuilderandsplitter.h"
#include "bench/measure.h"

namespace
{
using bench::secondsSince;
using bench::tClock;
using bench::tFigures;

constexpr int cRuns = 7;
constexpr std::size_t cSpokePayload = 542;
constexpr std::size_t cChunk = 64 * 1024;
constexpr std::size_t cStreamSize = 256 * 1024 * 1024;
constexpr std::size_t cBigCall = 16 * 1024 * 1024;

// Counts packages; the feeding thread waits for a number of them.
class tCounter final : public iPackageObserver
{
public:
    void UpdateSplittedPackage(const tRadarMsgPackage*, unsigned, int) override { count(); }
    void UpdateBuildedPackage(const char*, unsigned, int, unsigned long) override { count(); }
    void expect(std::size_t number)
    {
        m_seen = 0;
        m_expected = number;
        m_done = false;
    }
    void wait() const { m_done.wait(false); }

private:
    void count()
    {
        if (++m_seen != m_expected)
            return;
        m_done = true;
        m_done.notify_one();
    }

    std::size_t m_seen = 0;
    std::size_t m_expected = 0;
    std::atomic<bool> m_done{false};
};

// `once` gives the seconds of one run; the first run warms up and is not counted.
template <typename tOnce>
tFigures measure(tOnce once)
{
    once();
    std::vector<double> seconds;
    for (int i = 0; i < cRuns; ++i)
        seconds.push_back(once());
    return bench::figuresOf(seconds);
}

// Whole packages of `type`, numbered from 0, `size` bytes at most.
std::string makeStream(std::size_t size, std::size_t payloadLen, tMsgType type)
{
    const std::string payload(payloadLen, 'x');
    std::string stream(size / packageSize(payloadLen) * packageSize(payloadLen), '\0');
    tPackageFields fields{};
    fields.msgInfo.type = type;
    for (std::size_t pos = 0; pos < stream.size(); pos += packageSize(payloadLen), ++fields.packCnt)
        writePackage(&stream[pos], fields, payload.data(), payloadLen);
    return stream;
}

double feed(tPackageBuilderAndSplitter& splitter, tCounter& counter, const std::string& stream, std::size_t size,
            std::size_t packages)
{
    splitter.Clear();
    counter.expect(packages);
    const auto start = tClock::now();
    for (std::size_t pos = 0; pos < stream.size(); pos += size)
        splitter.LoadRecBuff(stream.data() + pos, static_cast<int>(std::min(size, stream.size() - pos)));
    counter.wait();
    return secondsSince(start);
}

tFigures measureFeed(const std::string& stream, std::size_t chunk, std::size_t packageLen)
{
    tCounter counter;
    tPackageBuilderAndSplitter splitter;
    splitter.AddPackageObserer(&counter);
    return measure([&] { return feed(splitter, counter, stream, chunk, stream.size() / packageLen); });
}

tFigures measureMemcpy(const std::string& source)
{
    const std::unique_ptr<char[]> to(new char[source.size()]);
    return measure([&] {
        const auto start = tClock::now();
        std::memcpy(to.get(), source.data(), source.size());
        asm volatile("" : : "r"(to.get()) : "memory");  // keeps the copy, though it is not read
        return secondsSince(start);
    });
}

tFigures measureBuild(std::size_t number)
{
    tCounter counter;
    tPackageBuilderAndSplitter builder;
    builder.AddPackageObserer(&counter);
    const std::string payload(cSpokePayload, 'x');
    return measure([&] {
        counter.expect(number);
        const auto start = tClock::now();
        for (std::size_t i = 0; i < number; ++i)
            builder.BuildPackage(tUdpMsgInfo{}, "239.17.0.1", 6001, payload.data(), static_cast<int>(payload.size()),
                                 0);
        counter.wait();
        return secondsSince(start);
    });
}

void reportStream(FILE* out, const char* name, const tFigures& figures, std::size_t bytes)
{
    const auto rate = [&](double seconds) { return static_cast<double>(bytes) / seconds / 1e9; };
    std::fprintf(out, "%-34s %6.2f GB/s (%.2f to %.2f)\n", name, rate(figures.median), rate(figures.high),
                 rate(figures.low));
}

void reportEach(FILE* out, const char* name, const tFigures& figures, std::size_t number)
{
    const auto each = [&](double seconds) { return seconds / static_cast<double>(number) * 1e9; };
    std::fprintf(out, "%-34s %6.1f ns a package (%.1f to %.1f)\n", name, each(figures.median), each(figures.low),
                 each(figures.high));
}

void measureSpokes(FILE* out)
{
    const std::string direct = makeStream(cStreamSize, cSpokePayload, eDediReadType);
    const tFigures copy = measureMemcpy(direct);
    reportStream(out, "memcpy", copy, direct.size());
    const tFigures parsed = measureFeed(direct, cChunk, packageSize(cSpokePayload));
    reportStream(out, "split, parse thread delivers", parsed, direct.size());
    const std::string queued = makeStream(cStreamSize, cSpokePayload, eReadType);
    const tFigures popped = measureFeed(queued, cChunk, packageSize(cSpokePayload));
    reportStream(out, "split, pop thread delivers", popped, queued.size());
    std::fprintf(out, "ratio to memcpy, parse thread      %6.2f\n", copy.median / parsed.median);
    std::fprintf(out, "ratio to memcpy, pop thread        %6.2f\n", copy.median / popped.median);
}

void measureSmallPackages(FILE* out)
{
    const std::string big = makeStream(cBigCall, 0, eDediReadType);
    const std::string small = makeStream(cChunk, 0, eDediReadType);
    const tFigures one = measureFeed(big, big.size(), packageSize(0));
    const tFigures few = measureFeed(small, small.size(), packageSize(0));
    reportEach(out, "split 41 bytes, 64 KiB in one call", few, small.size() / packageSize(0));
    reportEach(out, "split 41 bytes, 16 MiB in one call", one, big.size() / packageSize(0));
}
}  // namespace

int main()
{
#ifdef NDEBUG
    constexpr bool cAssertions = false;
#else
    constexpr bool cAssertions = true;
#endif
    if (cAssertions || std::string(KESTOVA_SANITIZED) != "")
    {
        std::fprintf(stderr, "package_bench: built with assertions or sanitizers, its figures would mean nothing; "
                             "build with -DCMAKE_BUILD_TYPE=Release and without KESTOVA_SANITIZE\n");
        return 1;
    }
    const std::unique_ptr<FILE, int (*)(FILE*)> out(::fdopen(::dup(STDOUT_FILENO), "w"), std::fclose);
    if (!out || std::freopen("/dev/null", "w", stdout) == nullptr)
    {
        std::perror("package_bench");
        return 1;
    }
    std::fprintf(out.get(), "build type %s, median of %d runs (lowest to highest)\n", KESTOVA_BUILD_TYPE, cRuns);
    measureSpokes(out.get());
    measureSmallPackages(out.get());
    constexpr std::size_t cBuilt = 200'000;
    reportEach(out.get(), "build a spoke", measureBuild(cBuilt), cBuilt);
    return 0;
}
