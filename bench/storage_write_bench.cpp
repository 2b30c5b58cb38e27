// How fast segments are written into a file, and what a call costs the producer.
//
//   storage_write_bench [FOLDER]
//
// Sustained: 2,000,000 segments of 583 bytes are given to WriteData at full speed; a run lasts until all of them are in
// the file (page cache); the same with fine times, and with fine times and an observer that sums all bytes. The
// yardsticks write the same bytes, in the same run: write(2) in blocks of 1 MiB, and fwrite segment by segment through
// a buffer of 1 MiB. The producer's mean is the time spent in WriteData over the segments. Paced: 20,000 segments a
// second for 5 s; percentiles of single calls (the clock's own cost is part of each), and those of fwrite in turn with
// it. Threads: the same number of segments from 1, 2, 4 and 8 threads at once, until all of them are in the file.
// Medians of five runs, in turn; files go to FOLDER, by default the system's temporary folder.
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <thread>

#include "KestovaStorage/datastorageio.h"
#include "KestovaStorage/writeobserver.h"
#include "bench/measure.h"

namespace
{
using bench::tClock;

constexpr int cRuns = 5;
constexpr std::size_t cSegments = 2'000'000;
constexpr std::size_t cSegmentLen = 583;
constexpr std::size_t cBytes = cSegments * cSegmentLen;
constexpr std::size_t cBlock = 1 << 20;
constexpr unsigned long cTime = 1'700'000'000'000;

// Sums every byte that was written.
class tSummer final : public storage::iWriteObserver
{
public:
    void FileStarted(const char*, const storage::tFileId&) override {}
    void SegmentsWritten(const storage::tWrittenSegment* segments, std::size_t count) override
    {
        std::uint64_t sum = m_sum;
        for (std::size_t i = 0; i < count; ++i)
        {
            std::size_t at = 0;
            for (std::uint64_t word = 0; at + sizeof word <= segments[i].len; at += sizeof word)
            {
                std::memcpy(&word, segments[i].bytes + at, sizeof word);
                sum = sum * 31 + word;  // a chain of multiplications, slower than a CRC with instructions of its own
            }
            bytes += segments[i].len;
        }
        m_sum = sum;
    }
    void SegmentsLost(std::uint64_t) override {}
    void FileFinished(const char*) override {}
    void FileCompressed(const char*, const char*) override {}
    std::uint64_t bytes = 0;

private:
    volatile std::uint64_t m_sum = 0;
};

struct tRecording
{
    double sustained;  // s until everything is in the file
    double produced;   // s until everything is queued
};

enum class eWith
{
    eNothing,
    eFineTimes,
    eObserver  // and fine times
};

tRecording record(const std::string& folder, const std::string& segment, eWith with)
{
    tSummer summer;
    storage::tDataStorageIO storage("", ".data");
    storage.SetFineTimes(with != eWith::eNothing);
    storage.SetWriteObserver(with == eWith::eObserver ? &summer : nullptr);
    if (!storage.CreateNewWritingFile(folder, "bench", false))
        std::exit(1);
    tRecording result{};
    const auto start = tClock::now();
    for (std::size_t i = 0; i < cSegments; ++i)
    {
        if (with == eWith::eNothing)
            storage.WriteData(segment.data(), segment.size(), cTime + i);
        else
            storage.WriteDataFine(segment.data(), segment.size(), cTime * 1000 + i);
    }
    result.produced = bench::secondsSince(start);
    if (!storage.WaitWriteIdle(60'000) || storage.GetWriteLostCnt() != 0)
        std::exit(1);
    if (with == eWith::eObserver)
        storage.FinishWrite();  // has heard everything then
    result.sustained = bench::secondsSince(start);
    if (with == eWith::eObserver && summer.bytes != cBytes)
        std::exit(1);
    return result;
}

double writeBlocks(const std::string& path)
{
    const std::unique_ptr<char[]> block(new char[cBlock]());
    const auto start = tClock::now();
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    for (std::size_t done = 0; done < cBytes; done += cBlock)
    {
        if (::write(file, block.get(), std::min(cBlock, cBytes - done)) < 0)
            std::exit(1);
    }
    ::close(file);
    return bench::secondsSince(start);
}

double writeStream(const std::string& path, const std::string& segment)
{
    std::vector<char> buffer(cBlock);
    const auto start = tClock::now();
    FILE* const file = std::fopen(path.c_str(), "wb");
    std::setvbuf(file, buffer.data(), _IOFBF, buffer.size());
    for (std::size_t i = 0; i < cSegments; ++i)
        std::fwrite(segment.data(), segment.size(), 1, file);
    std::fclose(file);
    return bench::secondsSince(start);
}

void clear(const std::string& folder)
{
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        std::filesystem::remove_all(entry.path());
}

void sustained(const std::string& folder, const std::string& segment)
{
    std::vector<double> recorded, produced, blocks, streamed, fine, observed, observedProduced;
    for (int run = 0; run <= cRuns; ++run)  // the first warms up
    {
        const tRecording mine = record(folder, segment, eWith::eNothing);
        clear(folder);
        const tRecording withFine = record(folder, segment, eWith::eFineTimes);
        clear(folder);
        const tRecording withObserver = record(folder, segment, eWith::eObserver);
        clear(folder);
        const double byBlocks = writeBlocks(folder + "blocks");
        clear(folder);
        const double byStream = writeStream(folder + "stream", segment);
        clear(folder);
        if (run == 0)
            continue;
        recorded.push_back(mine.sustained);
        produced.push_back(mine.produced);
        fine.push_back(withFine.sustained);
        observed.push_back(withObserver.sustained);
        observedProduced.push_back(withObserver.produced);
        blocks.push_back(byBlocks);
        streamed.push_back(byStream);
    }
    const auto rate = [](const bench::tFigures& f) { return static_cast<double>(cBytes) / f.median / 1e9; };
    const auto mine = bench::figuresOf(recorded), first = bench::figuresOf(blocks), second = bench::figuresOf(streamed);
    const auto print = [&](const char* name, const bench::tFigures& f) {
        std::printf("  %-34s %6.2f GB/s  (%.3f to %.3f s)\n", name, rate(f), f.low, f.high);
    };
    print("WriteData, until in the file", mine);
    const auto finely = bench::figuresOf(fine), summed = bench::figuresOf(observed);
    print("the same with fine times", finely);
    print("and with an observer that sums", summed);
    print("write(2), blocks of 1 MiB", first);
    print("fwrite, buffer of 1 MiB", second);
    std::printf("  ratio to write(2) %.2f (wanted: 0.5), to fwrite %.2f (wanted: 2)\n", first.median / mine.median,
                second.median / mine.median);
    std::printf("  with fine times %.3f x (wanted: 0.99), and with an observer %.3f x (wanted: 0.95)\n",
                mine.median / finely.median, mine.median / summed.median);
    std::printf("  producer at full speed: mean %.0f ns a segment (wanted: 140), with an observer %.0f ns\n",
                bench::figuresOf(produced).median / cSegments * 1e9,
                bench::figuresOf(observedProduced).median / cSegments * 1e9);
}

// Percentiles of calls at 20,000 a second.
struct tPaced
{
    std::vector<double> p50, p99, worst;

    template <typename tCall>
    void run(tCall call)
    {
        constexpr auto cGap = std::chrono::microseconds(50);
        constexpr std::size_t cCount = 100'000;
        std::vector<double> calls(cCount);
        auto due = tClock::now();
        for (double& took : calls)
        {
            while (tClock::now() < due)
            {}
            const auto start = tClock::now();
            call();
            took = bench::secondsSince(start) * 1e9;
            due += cGap;
        }
        p50.push_back(bench::percentile(calls, 0.5));
        p99.push_back(bench::percentile(calls, 0.99));
        worst.push_back(*std::max_element(calls.begin(), calls.end()));
    }
    void show(const char* name) const
    {
        std::printf("  paced 20,000/s, %-10s p50 %.0f ns, p99 %.0f ns, worst %.0f ns\n", name,
                    bench::figuresOf(p50).median, bench::figuresOf(p99).median, bench::figuresOf(worst).median);
    }
};

void paced(const std::string& folder, const std::string& segment)
{
    tPaced mine, streamed;
    for (int run = 0; run < cRuns; ++run)
    {
        {
            storage::tDataStorageIO storage("", ".data");
            storage.CreateNewWritingFile(folder, "paced", false);
            mine.run([&] { storage.WriteData(segment.data(), segment.size(), cTime); });
            storage.FinishWrite();
        }
        std::vector<char> buffer(cBlock);
        FILE* const file = std::fopen((folder + "stream").c_str(), "wb");
        std::setvbuf(file, buffer.data(), _IOFBF, buffer.size());
        streamed.run([&] { std::fwrite(segment.data(), segment.size(), 1, file); });
        std::fclose(file);
        clear(folder);
    }
    mine.show("WriteData");
    streamed.show("fwrite");
    std::printf("  p99 %.2f x fwrite's (wanted: 1.2)\n",
                bench::figuresOf(mine.p99).median / bench::figuresOf(streamed.p99).median);
}

double recordFrom(std::size_t threads, const std::string& folder, const std::string& segment)
{
    storage::tDataStorageIO storage("", ".data");
    if (!storage.CreateNewWritingFile(folder, "bench", false))
        std::exit(1);
    const auto start = tClock::now();
    {
        std::vector<std::jthread> producers;
        for (std::size_t thread = 0; thread < threads; ++thread)
            producers.emplace_back([&] {
                for (std::size_t i = 0; i < cSegments / threads; ++i)
                    storage.WriteData(segment.data(), segment.size(), cTime + i);
            });
    }
    if (!storage.WaitWriteIdle(60'000) || storage.GetWriteLostCnt() != 0)
        std::exit(1);
    return bench::secondsSince(start);
}

void fromThreads(const std::string& folder, const std::string& segment)
{
    constexpr std::size_t cThreads[] = {1, 2, 4, 8};
    std::vector<double> seconds[std::size(cThreads)];
    for (int run = 0; run < cRuns; ++run)
    {
        for (std::size_t i = 0; i < std::size(cThreads); ++i)
        {
            seconds[i].push_back(recordFrom(cThreads[i], folder, segment));
            clear(folder);
        }
    }
    for (std::size_t i = 0; i < std::size(cThreads); ++i)
        std::printf("  from %zu threads %.2f GB/s (wanted: 3)\n", cThreads[i],
                    static_cast<double>(cBytes) / bench::figuresOf(seconds[i]).median / 1e9);
}
}  // namespace

int main(int argc, char** argv)
{
    bench::announce("storage_write_bench: WriteData to file, 2,000,000 segments of 583 bytes");
    const bench::tScratch scratch(argc > 1 ? argv[1] : nullptr);
    const std::string segment(cSegmentLen, 's');
    sustained(scratch.path(), segment);
    paced(scratch.path(), segment);
    fromThreads(scratch.path(), segment);
    return 0;
}
