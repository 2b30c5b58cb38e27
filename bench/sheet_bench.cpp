// What sheets cost, and how fast they are read.
//
//   sheet_bench [FOLDER]
//
// Recording: 2,000,000 packages of 583 bytes are given to WriteDataFine at full speed, without sheets and with them
// (digests of four streams, checksums of every second, a sheet every 10 s and of each file); a run lasts until all of
// them are in finished files and the last sheet is on the disk; beside it stands the processor time of all threads.
// Building: the same packages through tSheetBuilder, from a buffer in the cache, one by one and as a recorder has them.
// Reading: what readSheetSummary() says of 10,000 files, on two threads, as a list of recordings wants it. Medians of
// five runs, in turn; files go to FOLDER, by default the system's temporary folder.
#include <atomic>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <thread>

#include "KestovaRecordings/sheetbuilder.h"
#include "KestovaStorage/datastorageio.h"
#include "KestovaStorage/packageview.h"
#include "bench/measure.h"
#include "common/descriptor.h"
#include "sessions/record/sheetkeeper.h"

namespace
{
using bench::tClock;

constexpr int cRuns = 5;
constexpr std::size_t cSegments = 2'000'000;
constexpr std::size_t cSegmentLen = 583;
constexpr std::uint64_t cTime = 1'700'000'000'000;
constexpr std::size_t cPerSecond = 20'000;
constexpr std::size_t cFiles = 10'000;

// Packages of four streams in turn, with a message as a radar's.
std::vector<std::string> packages()
{
    std::vector<std::string> made;
    for (std::uint16_t stream = 0; stream < 4; ++stream)
    {
        std::string bytes(cSegmentLen, '\0');
        auto* const package = reinterpret_cast<tRadarMsgPackage*>(bytes.data());
        std::memcpy(bytes.data(), cPackageHeadMark, cPackageMarkSize);
        package->udpPort = stream;
        package->msgLen = cSegmentLen - cPackageOverhead;
        for (std::size_t i = cPackageHeadSize; i < cSegmentLen; ++i)
            bytes[i] = static_cast<char>(i * 31 + stream);
        std::memcpy(bytes.data() + cSegmentLen - cPackageMarkSize, cPackageEndMark, cPackageMarkSize);
        made.push_back(bytes);
    }
    return made;
}

struct tRecording
{
    double finished, produced, processors;  // s
};

double processorSeconds()
{
    timespec time;
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

tRecording record(const std::string& folder, const std::vector<std::string>& segments, bool withSheets)
{
    session::tSheetKeeper keeper({});
    storage::tDataStorageIO storage("", ".data");
    storage.SetFineTimes(true);
    if (withSheets)
        storage.SetWriteObserver(&keeper);
    if (!storage.CreateNewWritingFile(folder, "bench", false))
        std::exit(1);
    if (withSheets)
        keeper.start();
    tRecording result{};
    const double processors = processorSeconds();
    const auto start = tClock::now();
    for (std::size_t i = 0; i < cSegments; ++i)
    {
        const std::string& segment = segments[i % segments.size()];
        storage.WriteDataFine(segment.data(), segment.size(), cTime * 1000 + i * 1'000'000 / cPerSecond);
    }
    result.produced = bench::secondsSince(start);
    if (!storage.WaitWriteIdle(60'000) || storage.GetWriteLostCnt() != 0)
        std::exit(1);
    storage.FinishWrite();
    keeper.finish();
    result.finished = bench::secondsSince(start);
    result.processors = processorSeconds() - processors;
    return result;
}

void clear(const std::string& folder)
{
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
}

void recording(const std::string& folder, const std::vector<std::string>& segments)
{
    std::vector<double> plain, plainProduced, plainProcessors, sheets, sheetsProduced, sheetsProcessors;
    for (int run = 0; run <= cRuns; ++run)  // the first warms up
    {
        const tRecording without = record(folder, segments, false);
        clear(folder);
        const tRecording with = record(folder, segments, true);
        clear(folder);
        if (run == 0)
            continue;
        plain.push_back(without.finished);
        plainProduced.push_back(without.produced);
        plainProcessors.push_back(without.processors);
        sheets.push_back(with.finished);
        sheetsProduced.push_back(with.produced);
        sheetsProcessors.push_back(with.processors);
    }
    const auto without = bench::figuresOf(plain), with = bench::figuresOf(sheets);
    const auto print = [](const char* name, const bench::tFigures& f, const std::vector<double>& produced,
                          const std::vector<double>& processors) {
        std::printf("  %-26s %5.2f GB/s  (%.3f to %.3f s), producer %.0f ns a segment, processors %.0f ns\n", name,
                    cSegments * cSegmentLen / f.median / 1e9, f.low, f.high,
                    bench::figuresOf(produced).median / cSegments * 1e9,
                    bench::figuresOf(processors).median / cSegments * 1e9);
    };
    print("recording without sheets", without, plainProduced, plainProcessors);
    print("recording with sheets", with, sheetsProduced, sheetsProcessors);
    std::printf("  ratio %.3f (wanted: 0.95)\n", without.median / with.median);
}

constexpr std::size_t cBuilt = cSegments / 5;

void addSingly(recordings::tSheetBuilder& builder, const std::vector<std::string>& segments)
{
    for (std::size_t i = 0; i < cBuilt; ++i)
        builder.add(cTime + i * 1000 / cPerSecond, 0, segments[i % segments.size()], 10'000'000 + i * cSegmentLen);
}

// As they lie in a block of the writer's queue.
void addBlocks(recordings::tSheetBuilder& builder, const std::vector<std::string>& segments)
{
    constexpr std::size_t cInBlock = 800, cAtOnce = 64;
    std::string block;
    for (std::size_t i = 0; i < cInBlock; ++i)
        block += segments[i % segments.size()];
    std::vector<storage::tWrittenSegment> written;
    for (std::size_t i = 0; i < cBuilt; ++i)
    {
        written.push_back({block.data() + i % cInBlock * cSegmentLen, cSegmentLen, cTime + i * 1000 / cPerSecond, 0,
                           10'000'000 + i * cSegmentLen});
        if (written.size() < cAtOnce && i + 1 < cBuilt)
            continue;
        builder.addWritten(written.data(), written.size());
        written.clear();
    }
}

template <typename tAdd>
void building(const char* name, const std::vector<std::string>& segments, tAdd add)
{
    std::vector<double> times;
    for (int run = 0; run <= cRuns; ++run)
    {
        recordings::tSheetBuilder builder;
        const double start = processorSeconds();
        add(builder, segments);
        times.push_back(processorSeconds() - start);
    }
    const auto figures = bench::figuresOf(times);
    std::printf("  tSheetBuilder, %-11s %5.2f GB/s, %.0f ns a record\n", name,
                cBuilt * cSegmentLen / figures.median / 1e9, figures.median / cBuilt * 1e9);
}

std::string nameOf(const std::string& folder, std::size_t i)
{
    return folder + std::to_string(i / 10) + "/" + std::to_string(i) + ".data";
}

// Data files without payload, with sheets as of a minute of a radar.
void makeFiles(const std::string& folder, const std::vector<std::string>& segments)
{
    recordings::tSheetBuilder builder;
    for (std::size_t i = 0; i < 6000; ++i)
        builder.add(cTime + i * 10, 0, segments[i % segments.size()], 10'000'000 + i * cSegmentLen);
    recordings::tSheet sheet;
    builder.fill(sheet);
    sheet.id = recordings::newSheetId();
    const auto slot = storage::encode(storage::tNormalIndexTable{cTime, 10'000'000, cSegmentLen});
    const unsigned char magic[] = {0x00, 0x1A, 0xA0, 0xD0};
    for (std::size_t i = 0; i < cFiles; ++i)
    {
        std::filesystem::create_directories(std::filesystem::path(nameOf(folder, i)).parent_path());
        const tDescriptor file(::open(nameOf(folder, i).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        file.writeAt(magic, sizeof magic, 0);
        file.writeAt(slot.data(), slot.size(), storage::cIndexPos);
        if (i == 0)
            recordings::writeSheet(nameOf(folder, 0), sheet);
        else
            std::filesystem::copy_file(folder + "0/0.json",
                                       nameOf(folder, i).substr(0, nameOf(folder, i).size() - 5) + ".json");
    }
}

void reading(const std::string& folder, const std::vector<std::string>& segments)
{
    makeFiles(folder, segments);
    std::vector<double> times;
    for (int run = 0; run <= cRuns; ++run)
    {
        std::atomic<std::size_t> next{0}, ours{0};
        const auto read = [&] {
            for (std::size_t i = next++; i < cFiles; i = next++)
                ours += recordings::readSheetSummary(nameOf(folder, i)) ? 1 : 0;
        };
        const auto start = tClock::now();
        std::thread second(read);
        read();
        second.join();
        times.push_back(bench::secondsSince(start));
        if (ours != cFiles)
            std::exit(1);
    }
    const auto figures = bench::figuresOf(times);
    std::printf("  readSheetSummary, 10,000 files on two threads: %.3f s (%.3f to %.3f)\n", figures.median, figures.low,
                figures.high);
    clear(folder);
}
}  // namespace

int main(int argc, char** argv)
{
    bench::announce("sheet_bench");
    const bench::tScratch scratch(argc > 1 ? argv[1] : nullptr);
    const std::vector<std::string> segments = packages();
    building("one by one", segments, addSingly);
    building("in blocks", segments, addBlocks);
    reading(scratch.path(), segments);
    recording(scratch.path(), segments);
    return 0;
}
