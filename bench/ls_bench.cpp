// How long kestova ls takes for an archive, beside find.
//
//   ls_bench [FOLDER [RECORDINGS]]
//
// 1,000 recordings of 10 files with sheets. Both are programs, from start to end: `kestova ls ROOT --json` and the
// yardstick `find ROOT -name '*.data' -size +0`, results to /dev/null, in turn. Medians of nine runs; files go to
// FOLDER, by default the system's temporary folder, and are in the page cache.
#include <cstdlib>

#include "bench/measure.h"
#include "bench/recordedfiles.h"

namespace
{
constexpr int cRuns = 9;
constexpr std::size_t cFiles = 10;

constexpr std::size_t cRecords = 100, cLength = 542;

// The two written stretches of a file: its heads with the index, and its segments.
struct tStretch
{
    std::uint64_t pos;
    std::string bytes;
};

std::vector<tStretch> stretchesOf(const std::string& path)
{
    std::vector<tStretch> stretches = {{0, std::string(storage::cIndexPos + cRecords * storage::cIndexSlotSize, '\0')},
                                       {storage::cPayloadPos, std::string(cRecords * cLength, '\0')}};
    const tDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    for (tStretch& stretch : stretches)
        if (!file.readAllAt(stretch.bytes.data(), stretch.bytes.size(), stretch.pos))
            std::exit(1);
    return stretches;
}

// Copies of one file: what is in them does not matter here.
void makeArchive(const std::string& root, std::size_t recordings)
{
    const std::string model = root + "model.data", sheet = root + "model.json";
    bench::recordFile(model, cRecords, cLength, 1'700'000'000'000);
    const auto stretches = stretchesOf(model);
    for (std::size_t i = 0; i < recordings; ++i)
    {
        char name[64];
        std::snprintf(name, sizeof name, "Data_%06zu_2026.11.22", i);
        std::filesystem::create_directories(root + name);
        for (std::size_t file = 0; file < cFiles; ++file)
        {
            const std::string stem = root + name + "/000" + std::to_string(file) + "_2026-11-22_10-00-00_A1_2_B";
            const tDescriptor copy(::open((stem + ".data").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
            for (const tStretch& stretch : stretches)
                bench::put(copy, stretch.bytes.data(), stretch.bytes.size(), stretch.pos);
            std::filesystem::copy_file(sheet, stem + ".json");
        }
    }
    std::filesystem::remove(model);
    std::filesystem::remove(sheet);
}

double run(const std::string& command)
{
    const auto start = bench::tClock::now();
    if (std::system((command + " > /dev/null").c_str()) != 0)
        std::exit(1);
    return bench::secondsSince(start);
}
}  // namespace

int main(int argc, char** argv)
{
    bench::announce("ls_bench");
    const bench::tScratch scratch(argc > 1 ? argv[1] : nullptr);
    const std::size_t recordings = argc > 2 ? std::strtoul(argv[2], nullptr, 10) : 1000;
    makeArchive(scratch.path(), recordings);
    std::vector<double> ls, find;
    for (int i = 0; i < cRuns; ++i)
    {
        ls.push_back(run(KESTOVA_TOOL " ls " + scratch.path() + " --json"));
        find.push_back(run("find " + scratch.path() + " -name '*.data' -size +0"));
    }
    const auto ours = bench::figuresOf(ls), theirs = bench::figuresOf(find);
    std::printf("%zu recordings of %zu files: ls %.1f ms (%.1f to %.1f), find %.1f ms (%.1f to %.1f), ratio %.2f\n",
                recordings, cFiles, ours.median * 1e3, ours.low * 1e3, ours.high * 1e3, theirs.median * 1e3,
                theirs.low * 1e3, theirs.high * 1e3, ours.median / theirs.median);
}
