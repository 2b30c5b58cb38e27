// How long kestova info takes, with sheets and without.
//
//   info_bench [FOLDER [LENGTH [FILES]]]
//
// Ten files, or FILES, of 476,091 packages of LENGTH bytes (2,160, which makes 10 GB), counted by the library as
// kestova info counts them: from their sheets, and with the sheets taken away record by record. The yardstick reads the
// same files with read(2) in blocks of 1 MiB. Medians of five runs; files go to FOLDER, by default the system's
// temporary folder, and are in the page cache if they fit.
#include <sys/resource.h>

#include "KestovaRecordings/recordingcounts.h"
#include "bench/measure.h"
#include "bench/recordedfiles.h"

namespace
{
constexpr int cRuns = 5;

double count(const std::string& folder, std::uint64_t expected)
{
    const auto start = bench::tClock::now();
    const auto counts = recordings::countRecordings({folder}, {}, [](const auto&) { return true; });
    const double seconds = bench::secondsSince(start);
    if (counts.total.records != expected || counts.total.damaged != 0)
        std::exit(1);
    return seconds;
}

double cpuSeconds()
{
    rusage usage;
    ::getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double readAll(const std::string& folder)
{
    std::vector<char> block(1 << 20);
    const auto start = bench::tClock::now();
    for (const auto& entry : std::filesystem::directory_iterator(folder))
    {
        const tDescriptor file(::open(entry.path().c_str(), O_RDONLY | O_CLOEXEC));
        while (::read(file.get(), block.data(), block.size()) > 0)
        {}
    }
    return bench::secondsSince(start);
}

void removeSheets(const std::string& folder)
{
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        if (entry.path().extension() == ".json")
            std::filesystem::remove(entry.path());
}
}  // namespace

int main(int argc, char** argv)
{
    bench::announce("info_bench");
    const bench::tScratch scratch(argc > 1 ? argv[1] : nullptr);
    const std::size_t length = argc > 2 ? std::strtoul(argv[2], nullptr, 10) : 2160;
    const std::size_t files = argc > 3 ? std::strtoul(argv[3], nullptr, 10) : 10;
    for (std::size_t i = 0; i < files; ++i)
        bench::recordFile(scratch.path() + std::to_string(i) + ".data", storage::cIndexCapacity, length,
                          1'700'000'000'000 + i * storage::cIndexCapacity / 2);
    const std::uint64_t records = files * storage::cIndexCapacity;
    std::vector<double> withSheets, without, cpu, reading;
    for (int i = 0; i < cRuns; ++i)
        withSheets.push_back(count(scratch.path(), records));
    removeSheets(scratch.path());
    for (int i = 0; i < cRuns; ++i)
    {
        const double before = cpuSeconds();
        without.push_back(count(scratch.path(), records));
        cpu.push_back((cpuSeconds() - before) / static_cast<double>(records));
        reading.push_back(readAll(scratch.path()));
    }
    const auto quick = bench::figuresOf(withSheets), slow = bench::figuresOf(without), yard = bench::figuresOf(reading);
    const double each = slow.median / static_cast<double>(records);
    std::printf("%zu files of %u packages of %zu bytes\n", files, storage::cIndexCapacity, length);
    std::printf("with sheets %.1f ms (%.1f to %.1f)\n", quick.median * 1e3, quick.low * 1e3, quick.high * 1e3);
    std::printf("without %.3f s (%.3f to %.3f), %.1f ns a record (%.1f ns of processors), %.1f million a second\n",
                slow.median, slow.low, slow.high, each * 1e9, bench::figuresOf(cpu).median * 1e9, 1e-6 / each);
    std::printf("read(2) %.3f s (%.3f to %.3f), ratio %.2f\n", yard.median, yard.low, yard.high,
                yard.median / slow.median);
}
