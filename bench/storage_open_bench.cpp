// How long a folder of recordings takes to open, what it costs in memory, and how quick a jump is.
//
//   storage_open_bench [FOLDER [FILES]]
//
// Twenty files, or FILES (286 hold 136 million records), of 476,091 records each, recorded one after the other, and
// interleaved record by record. Opening lasts from the call to the report of the time span. The yardstick reads the
// same index bytes with read(2) into memory of its own a file, in the same run. Memory is the growth of the resident
// set while everything is open and after nine jumps. A jump lasts from the call to the first segment that it delivers.
// Medians of five runs; files go to FOLDER, by default the system's temporary folder, and are read from the page cache.
#include <atomic>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <malloc.h>
#include <memory>

#include "KestovaStorage/datafileformat.h"
#include "KestovaStorage/datastorageio.h"
#include "bench/measure.h"

namespace
{
using bench::tClock;

constexpr int cRuns = 5;
std::size_t s_files = 20;
constexpr std::size_t cRecords = storage::cIndexCapacity;
constexpr std::uint64_t cFirstTime = 1'700'000'000'000;

std::string fileName(const std::string& folder, std::size_t file)
{
    char name[16];
    std::snprintf(name, sizeof name, "%04zu_.data", file);
    return folder + name;
}

// Records of one byte; only the index matters here.
void makeFiles(const std::string& folder, bool interleaved)
{
    std::vector<storage::tIndexSlot> index(cRecords);
    for (std::size_t file = 0; file < s_files; ++file)
    {
        for (std::size_t i = 0; i < cRecords; ++i)
        {
            const std::uint64_t place = interleaved ? i * s_files + file : file * cRecords + i;
            index[i] = storage::encode(storage::tNormalIndexTable{cFirstTime + place, storage::cPayloadPos + i, 1});
        }
        std::ofstream out(fileName(folder, file), std::ios::binary);
        const std::uint32_t magic = storage::cDataFileHead;
        const storage::tIndexHead head{cRecords, 1};
        out.write(reinterpret_cast<const char*>(&magic), sizeof magic);
        out.seekp(storage::cIndexHeadPos).write(reinterpret_cast<const char*>(&head), sizeof head);
        out.seekp(storage::cIndexPos)
            .write(reinterpret_cast<const char*>(index.data()),
                   static_cast<std::streamsize>(cRecords * storage::cIndexSlotSize));
        out.close();
        std::filesystem::resize_file(fileName(folder, file), storage::cPayloadPos + cRecords);
    }
}

double readIndexes(const std::string& folder)
{
    constexpr std::size_t cBytes = cRecords * storage::cIndexSlotSize;
    std::vector<std::unique_ptr<char[]>> kept;
    const auto start = tClock::now();
    for (std::size_t file = 0; file < s_files; ++file)
    {
        kept.emplace_back(new char[cBytes]);
        const int in = ::open(fileName(folder, file).c_str(), O_RDONLY);
        if (::lseek(in, storage::cIndexPos, SEEK_SET) < 0 ||
            ::read(in, kept.back().get(), cBytes) != static_cast<ssize_t>(cBytes))
            std::exit(1);
        ::close(in);
    }
    return bench::secondsSince(start);
}

std::size_t residentBytes()
{
    std::ifstream in("/proc/self/statm");
    std::size_t total = 0, resident = 0;
    in >> total >> resident;
    return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

class tObserver final : public storage::iDataReadReplayObserver
{
public:
    void UpdateReplayStatus(uint8_t) override {}
    void UpdateDataTimeSpan(uint64_t, uint64_t) override
    {
        m_opened = true;
        m_opened.notify_all();
    }
    void UpdateReplayData(uint64_t time, double, const char*, unsigned int, std::string) override
    {
        if (time < m_wanted.load())
            return;
        m_arrived = true;
        m_arrived.notify_all();
    }
    void waitOpened() const { m_opened.wait(false); }
    void expect(std::uint64_t time)
    {
        m_arrived = false;
        m_wanted = time;
    }
    void waitArrived() const { m_arrived.wait(false); }

private:
    std::atomic<bool> m_opened{false}, m_arrived{false};
    std::atomic<std::uint64_t> m_wanted{UINT64_MAX};
};

struct tOpening
{
    double seconds, bytes, jump;
};

tOpening openAll(const std::string& folder)
{
    tObserver observer;
    storage::tDataStorageIO storage("", ".data");
    ::malloc_trim(0);  // memory that the yardstick freed would hide growth
    const std::size_t before = residentBytes();
    const auto start = tClock::now();
    storage.OpenReadDataFileorFolder(folder, &observer);
    observer.waitOpened();
    tOpening result{bench::secondsSince(start), 0.0, 0.0};
    while (!storage.Pause(true))  // fails until playing has begun, a moment after the span
    {}
    std::vector<double> jumps;
    for (int i = 1; i <= 9; ++i)
    {
        const double fraction = 0.1 * i;
        observer.expect(cFirstTime +
                        static_cast<std::uint64_t>(fraction * static_cast<double>(s_files * cRecords - 2)));
        const auto jump = tClock::now();
        storage.Jump(fraction);
        observer.waitArrived();
        jumps.push_back(bench::secondsSince(jump));
        observer.expect(UINT64_MAX);
    }
    result.jump = bench::figuresOf(jumps).median;
    result.bytes = static_cast<double>(residentBytes()) - static_cast<double>(before);
    storage.CloseReadingFile();
    return result;
}

void measure(const char* name, const std::string& folder, double wanted)
{
    std::vector<double> opened, read, memory, jumps;
    for (int run = 0; run <= cRuns; ++run)  // the first warms up
    {
        const double reading = readIndexes(folder);
        const tOpening opening = openAll(folder);
        if (run == 0)
            continue;
        opened.push_back(opening.seconds);
        read.push_back(reading);
        memory.push_back(opening.bytes);
        jumps.push_back(opening.jump);
    }
    const auto records = static_cast<double>(s_files * cRecords);
    const auto mine = bench::figuresOf(opened), peer = bench::figuresOf(read);
    std::printf("  %-12s open %.1f ms (%.1f to %.1f), %.1f ns a segment; read(2) %.1f ms; ratio %.2f (wanted: %.1f)\n",
                name, mine.median * 1e3, mine.low * 1e3, mine.high * 1e3, mine.median / records * 1e9,
                peer.median * 1e3, mine.median / peer.median, wanted);
    const double bytes = bench::figuresOf(memory).median;
    std::printf(
        "  %-12s memory %.1f MB, %.2f bytes a segment (wanted: 2.2); jump to first segment %.3f ms (wanted: 1)\n", "",
        bytes / 1e6, bytes / records, bench::figuresOf(jumps).median * 1e3);
}
}  // namespace

int main(int argc, char** argv)
{
    if (argc > 2)
        s_files = std::stoul(argv[2]);
    bench::announce("storage_open_bench: files of 476,091 records");
    std::printf("  %zu files\n", s_files);
    const bench::tScratch scratch(argc > 1 ? argv[1] : nullptr);
    makeFiles(scratch.path(), false);
    measure("in sequence", scratch.path(), 1.5);
    makeFiles(scratch.path(), true);
    measure("interleaved", scratch.path(), 2.0);
    return 0;
}
