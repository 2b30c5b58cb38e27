// The error of the pace of a replay, and its cost.
//
//   replay_pace_bench [RUNS]
//
// Plays 20 s of records, one every 0.5 ms, at the recorded pace. The pace error compares the time from the first to the
// last record with the recorded one. A record's lateness is counted from the start of its recorded millisecond, time
// zero being the arrival of the first record. (The clock's first tick comes at once, so the first record of a
// millisecond comes one tick before that; its second record has the next key and comes with the next tick, on time.)
// CPU time is that of the whole process.
// Median of RUNS runs (5 by default: 100 s). bench/replay_pace_peer.sh plays the same with tcpreplay.
#include <atomic>
#include <cmath>
#include <sys/resource.h>

#include "KestovaStorage/datastorageio.h"
#include "bench/measure.h"

namespace
{
using bench::tClock;

constexpr std::size_t cRecords = 40'000;
constexpr unsigned long cFirstTime = 1'700'000'000'000;

class tObserver final : public storage::iDataReadReplayObserver
{
public:
    tObserver() { m_arrivals.reserve(cRecords); }
    void UpdateReplayStatus(uint8_t status) override
    {
        m_ended = status == storage::eReplayEnded;
        m_ended.notify_all();
    }
    void UpdateDataTimeSpan(uint64_t, uint64_t) override {}
    void UpdateReplayData(uint64_t time, double, const char*, unsigned int, std::string) override
    {
        m_arrivals.push_back({tClock::now(), time});
    }
    void waitEnded() const { m_ended.wait(false); }

    struct tArrival
    {
        tClock::time_point at;
        std::uint64_t recorded;
    };
    std::vector<tArrival> m_arrivals;

private:
    std::atomic<bool> m_ended{false};
};

double cpuSeconds()
{
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& t) {
        return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void makeRecording(const std::string& folder)
{
    storage::tDataStorageIO storage("", ".data");
    storage.CreateNewWritingFile(folder, "", false);
    const std::string segment(583, 's');
    for (std::size_t i = 0; i < cRecords; ++i)
        storage.WriteData(segment.data(), segment.size(), cFirstTime + i / 2);
    storage.WaitWriteIdle(10'000);
}

struct tPaceFigures
{
    double error, lateness, cpu;
};

tPaceFigures play(const std::string& folder)
{
    tObserver observer;
    storage::tDataStorageIO storage("", ".data");
    const double cpuBefore = cpuSeconds();
    const auto start = tClock::now();
    storage.OpenReadDataFileorFolder(folder, &observer);
    observer.waitEnded();
    const double cpu = (cpuSeconds() - cpuBefore) / bench::secondsSince(start);
    storage.CloseReadingFile();

    const auto& arrivals = observer.m_arrivals;
    if (arrivals.size() != cRecords)
        std::exit(1);
    std::vector<double> offsets;  // from the recorded millisecond to the arrival
    for (const auto& arrival : arrivals)
        offsets.push_back(std::chrono::duration<double>(arrival.at - arrivals.front().at).count() * 1e3 -
                          static_cast<double>(arrival.recorded - cFirstTime));
    // The first two milliseconds are due together at the start: the pace is that of the rest.
    const double span = std::chrono::duration<double>(arrivals.back().at - arrivals[4].at).count() /
                        (static_cast<double>(arrivals.back().recorded - arrivals[4].recorded) / 1e3);
    return {std::fabs(span - 1.0) * 100, bench::percentile(offsets, 0.99), cpu * 100};
}
}  // namespace

int main(int argc, char** argv)
{
    bench::announce("replay_pace_bench: 20 s of records every 0.5 ms");
    const bench::tScratch scratch(nullptr);
    makeRecording(scratch.path());
    std::vector<double> errors, lateness, cpu;
    for (int run = 0; run < (argc > 1 ? std::atoi(argv[1]) : 5); ++run)
    {
        const tPaceFigures pace = play(scratch.path());
        errors.push_back(pace.error);
        lateness.push_back(pace.lateness);
        cpu.push_back(pace.cpu);
    }
    const auto error = bench::figuresOf(errors), late = bench::figuresOf(lateness), used = bench::figuresOf(cpu);
    std::printf("  pace error   %.4f %% (%.4f to %.4f; wanted: 0.01)\n", error.median, error.low, error.high);
    std::printf("  lateness p99 %.3f ms (%.3f to %.3f; wanted: 0.5)\n", late.median, late.low, late.high);
    std::printf("  CPU          %.1f %% of a core (%.1f to %.1f; wanted: 5)\n", used.median, used.low, used.high);
    return 0;
}
