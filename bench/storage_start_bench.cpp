// How long it takes to start a file, and to go from a full file to the next.
//
//   storage_start_bench [FOLDER]
//
// Start: CreateNewWritingFile on a fresh object. Roll-over: a file's index is filled but for one segment; the time runs
// from giving that segment to WriteData until the object names the next file, so it also holds the writer's wake-up and
// the write of the segment: an upper bound of the gap at the writer. The producer continues meanwhile; its slowest call
// is shown, too. Medians of five runs.
#include "KestovaStorage/datastorageio.h"
#include "bench/measure.h"

namespace
{
using bench::tClock;

constexpr int cRuns = 5;
constexpr std::size_t cIndexCapacity = 476'091;

double startFile(const std::string& folder)
{
    storage::tDataStorageIO storage(folder, ".data");
    const auto start = tClock::now();
    if (!storage.CreateNewWritingFile(0UL, "bench", false))
        std::exit(1);
    return bench::secondsSince(start) * 1e3;
}

struct tRollOver
{
    double gap_ms, slowest_us;
};

tRollOver rollOver(const std::string& folder)
{
    storage::tDataStorageIO storage(folder, ".data");
    storage.CreateNewWritingFile(0UL, "bench", false);
    for (std::size_t i = 1; i < cIndexCapacity; ++i)
        storage.WriteData("s", 1, 1'700'000'000'000);
    if (!storage.WaitWriteIdle(10'000))
        std::exit(1);
    const std::string full = storage.GetCurrentWriteDataFileName();
    tRollOver result{};
    const auto start = tClock::now();
    do
    {
        const auto call = tClock::now();
        storage.WriteData("s", 1, 1'700'000'000'000);
        result.slowest_us = std::max(result.slowest_us, bench::secondsSince(call) * 1e6);
    } while (storage.GetCurrentWriteDataFileName() == full);
    result.gap_ms = bench::secondsSince(start) * 1e3;
    return result;
}
}  // namespace

int main(int argc, char** argv)
{
    bench::announce("storage_start_bench: starting a file, rolling over to the next");
    const bench::tScratch scratch(argc > 1 ? argv[1] : nullptr);
    std::vector<double> starts, gaps, slowest;
    for (int run = 0; run < cRuns; ++run)
    {
        starts.push_back(startFile(scratch.path()));
        const tRollOver over = rollOver(scratch.path());
        gaps.push_back(over.gap_ms);
        slowest.push_back(over.slowest_us);
    }
    const auto start = bench::figuresOf(starts), gap = bench::figuresOf(gaps), slow = bench::figuresOf(slowest);
    std::printf("  start a file          %.2f ms (%.2f to %.2f; wanted: 5)\n", start.median, start.low, start.high);
    std::printf("  roll-over, at most    %.2f ms (%.2f to %.2f; wanted: 2)\n", gap.median, gap.low, gap.high);
    std::printf("  producer, slowest call %.1f us (%.1f to %.1f)\n", slow.median, slow.low, slow.high);
    return 0;
}
