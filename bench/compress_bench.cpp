// Compressing a finished recording of 1 GB, disk to disk, beside a copy of it.
//
//   compress_bench [FOLDER]
//
// A recording of simulated spokes is made in FOLDER (the system's temporary folder), which needs 3 GB. In turn, five
// times each, with the source out of the page cache: `cp` and a sync of the copy; the compression that a recorder does
// when it has finished a file (its bytes are counted already, which is not timed); and tDataFileConverter::Compress,
// which counts them and verifies the result as well. Each in a process of its own; shown are wall times and the most
// memory.
#include <cstring>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include "KestovaStorage/datafileconverter.h"
#include "KestovaStorage/datastorageio.h"
#include "KestovaStorage/internal/conversion/filecoding.h"
#include "KestovaStorage/internal/recording/compressionqueue.h"
#include "bench/measure.h"
#include "bench/simulatedspokes.h"

namespace
{
namespace fs = std::filesystem;

constexpr std::uint64_t cSegments = 450'000;
constexpr std::size_t cSegmentLen = 2'200;

void require(bool done, const std::string& what)
{
    if (done)
        return;
    std::fprintf(stderr, "compress_bench: %s\n", what.c_str());
    std::exit(1);
}

void sync(const std::string& path)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    require(fd >= 0 && ::fsync(fd) == 0, path);
    ::close(fd);
}

void dropFromCache(const std::string& path)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    require(fd >= 0 && ::posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED) == 0, path);
    ::close(fd);
}

void record(const std::string& folder)
{
    const std::string bytes = bench::spokes(16 << 20);
    storage::tDataStorageIO storage("", ".data");
    require(storage.CreateNewWritingFile(folder, "", false), "no recording");
    const std::string path = storage.GetCurrentWriteDataFileName();
    for (std::uint64_t i = 0; i < cSegments; ++i)
    {
        storage.WriteData(bytes.data() + i * 542 % (bytes.size() - cSegmentLen), cSegmentLen, 1'700'000'000'000 + i);
        if (i % 10'000 == 0)
            require(storage.WaitWriteIdle(60'000), "the disk does not follow");
    }
    require(storage.WaitWriteIdle(60'000), "the disk does not follow");
    storage.FinishWrite();
    sync(path);
}

struct tRun
{
    double seconds, mebibytes;
};

// Runs `work` in a process of its own. What it prepares before it calls its argument is not timed.
template <typename tWork>
tRun inChild(tWork work)
{
    int report[2];
    require(::pipe(report) == 0, "pipe");
    const pid_t child = ::fork();
    require(child >= 0, "fork");
    if (child == 0)
    {
        bench::tClock::time_point start;
        work([&] { start = bench::tClock::now(); });
        const double seconds = bench::secondsSince(start);
        ::_exit(::write(report[1], &seconds, sizeof seconds) == sizeof seconds ? 0 : 1);
    }
    tRun run{};
    rusage usage{};
    int status = 0;
    require(::read(report[0], &run.seconds, sizeof run.seconds) == sizeof run.seconds, "a run failed");
    ::wait4(child, &status, 0, &usage);
    require(status == 0, "a run failed");
    for (const int end : report)
        ::close(end);
    run.mebibytes = static_cast<double>(usage.ru_maxrss) / 1024;
    return run;
}

struct tColumn
{
    std::vector<double> seconds, mebibytes;

    template <typename tWork>
    void run(const std::string& source, tWork work)
    {
        dropFromCache(source);
        const tRun run = inChild(work);
        seconds.push_back(run.seconds);
        mebibytes.push_back(run.mebibytes);
    }
    void show(const char* name, const tColumn& copy) const
    {
        const auto s = bench::figuresOf(seconds);
        std::printf("  %-34s %.2f s (%.2f to %.2f), %.2f x a copy, %.0f MiB at most\n", name, s.median, s.low, s.high,
                    s.median / bench::figuresOf(copy.seconds).median, bench::figuresOf(mebibytes).high);
    }
};

// A second name of the source, which stays.
std::string linked(const std::string& source, const std::string& name)
{
    const std::string path = fs::path(source).parent_path().string() + "/" + name;
    fs::create_hard_link(source, path);
    return path;
}

template <typename tStart>
void compressAsRecorder(const std::string& source, tStart start)
{
    const std::string path = linked(source, "r.data");
    auto encoder = storage::tCompressionQueue::newEncoder();
    tStatus status;
    const auto plain = storage::tDataFileReader::open(path, &status);
    if (plain)
        status = storage::countSegments(*plain, *encoder, nullptr);
    require(status.ok(), status.text());
    dropFromCache(path);
    start();
    {
        storage::tCompressionQueue compressions(".data", [](const std::string&, const std::string&) {});
        compressions.add(path, std::move(encoder));
    }
    require(fs::exists(fs::path(path).parent_path() / "r.tar.data"), "not compressed");
}

template <typename tStart>
void convert(const std::string& source, tStart start)
{
    const std::string path = linked(source, "c.data");
    std::string error;
    start();
    require(storage::tDataFileConverter::Compress(path, ".data", nullptr, nullptr, &error), error);
}
}  // namespace

int main(int argc, char** argv)
{
    bench::announce("compress_bench: a recording of 1 GB, disk to disk");
    std::fflush(stdout);
    const bench::tScratch scratch(argc > 1 ? argv[1] : nullptr);
    const std::string folder = scratch.path();
    inChild([&](auto start) {  // its memory is not ours
        start();
        record(folder);
    });
    const std::string source = fs::directory_iterator(folder)->path().string();
    tColumn copy, recorder, converter;
    for (int round = 0; round < 5; ++round)
    {
        copy.run(source, [&](auto start) {
            start();
            require(std::system(("cp '" + source + "' '" + folder + "copy' && sync '" + folder + "copy'").c_str()) == 0,
                    "cp");
        });
        recorder.run(source, [&](auto start) { compressAsRecorder(source, start); });
        converter.run(source, [&](auto start) { convert(source, start); });
        const double ratio =
            static_cast<double>(fs::file_size(folder + "r.tar.data")) / static_cast<double>(fs::file_size(source));
        if (round == 0)
            std::printf("  compressed to %.1f %%\n", ratio * 100);
        for (const char* name : {"copy", "r.tar.data", "c.tar.data"})
            fs::remove(folder + name);
    }
    copy.show("cp and sync", copy);
    recorder.show("compression of a recorder", copy);
    converter.show("tDataFileConverter::Compress", copy);
    std::printf("  wanted: 1.5 x a copy, 64 MiB\n");
    return 0;
}
