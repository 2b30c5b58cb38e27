// `kestova diff` of two recordings of 1 GB beside `cmp` of their files, all of them in the page cache.
//
//   diff_bench [FOLDER [RUNS [KESTOVA]]]
//
// KESTOVA is the tool, the one of this build if none is given. Recordings of 1.8 million messages, spokes of 542 bytes
// with some shorter ones between them, are made in FOLDER (the system's temporary folder), which needs 6 GB. In turn,
// RUNS times each (5): `cmp` of each pair of equal files; `kestova diff` of the same; of two recordings whose packages
// have other numbers and times, as after a replay; of one that lost every 1,000th message; of one without a common
// message. Each in a process of its own; shown are wall times and the most memory, which holds the index of a file of
// either side, 10 MB each.
#include <cstring>
#include <functional>
#include <sys/resource.h>
#include <sys/wait.h>

#include "KestovaStorage/datastorageio.h"
#include "KestovaStorage/packagerecorder.h"
#include "UdpSocket/udpsocket.h"
#include "bench/measure.h"

namespace
{
namespace fs = std::filesystem;

constexpr std::uint64_t cMessages = 1'800'000;
constexpr std::uint64_t cTime = 1'700'000'000'000;

void require(bool done, const std::string& what)
{
    if (done)
        return;
    std::fprintf(stderr, "diff_bench: %s\n", what.c_str());
    std::exit(1);
}

// What differs from the first recording.
struct tMade
{
    std::uint64_t timeMs = cTime;
    std::uint64_t seed = 0;
    std::uint64_t lostEvery = 0;  // 0: none
};

void record(const std::string& folder, const tMade& made)
{
    fs::create_directories(folder);
    storage::tDataStorageIO storage("", ".data");
    require(storage.CreateNewWritingFile(folder + "/", "", false), "no recording");
    Kestova::tPackageRecorder recorder(storage);
    const NetAddress group{net::transAddr("239.17.0.1"), net::HtoNs(6001)};
    std::string message(542, '\0');
    for (std::uint64_t i = 0; i < cMessages; ++i)
    {
        const bool spoke = i % 150 != 0;
        for (std::size_t at = 0; at + 8 <= message.size(); at += 32)
        {
            const std::uint64_t word = (i + made.seed + at) * 0x9E3779B97F4A7C15;
            std::memcpy(&message[at], &word, sizeof word);
        }
        const tUdpMsgInfo info{1, 2, eReadType, spoke ? eImageStream : eHeadingDev, 0};
        if (made.lostEvery == 0 || i % made.lostEvery != 7)
            recorder.Record(info, group, message.data(), spoke ? 542 : 17, made.timeMs + i * 5 / 8);
        if (i % 10'000 == 0)
            require(storage.WaitWriteIdle(60'000), "the disk does not follow");
    }
    require(storage.WaitWriteIdle(60'000), "the disk does not follow");
    storage.FinishWrite();
}

struct tColumn
{
    std::vector<double> seconds, mebibytes;

    // Runs a command line, which must end with this status.
    void run(const std::string& line, int wanted)
    {
        const auto start = bench::tClock::now();
        const pid_t child = ::fork();
        require(child >= 0, "fork");
        if (child == 0)
        {
            ::execl("/bin/sh", "sh", "-c", ("exec " + line + " >/dev/null").c_str(), nullptr);
            ::_exit(127);
        }
        rusage usage{};
        int status = 0;
        ::wait4(child, &status, 0, &usage);
        seconds.push_back(bench::secondsSince(start));
        mebibytes.push_back(static_cast<double>(usage.ru_maxrss) / 1024);
        require(WIFEXITED(status) && WEXITSTATUS(status) == wanted, line);
    }
    void show(const char* name, const tColumn& cmp) const
    {
        const auto s = bench::figuresOf(seconds);
        std::printf("  %-42s %.2f s (%.2f to %.2f), %.2f x the speed of cmp, %.0f MiB at most\n", name, s.median, s.low,
                    s.high, bench::figuresOf(cmp.seconds).median / s.median, bench::figuresOf(mebibytes).high);
    }
};

// Compares the files of two folders of the same names; reads both, which brings them into the page cache.
std::string cmpOf(const std::string& a, const std::string& b)
{
    return "sh -c 'for f in " + a + "/*; do cmp \"$f\" " + b + "/${f##*/} || exit 1; done'";
}
}  // namespace

int main(int argc, char** argv)
{
    bench::announce("diff_bench: two recordings of 1 GB");
    const std::string tool =
        argc > 3 ? argv[3] : (fs::canonical("/proc/self/exe").parent_path() / "../tools/kestova").string();
    require(fs::exists(tool), tool + " is not built");
    const bench::tScratch scratch(argc > 1 ? argv[1] : nullptr);
    const int runs = argc > 2 ? std::atoi(argv[2]) : 5;
    const std::string folder = scratch.path(), a = folder + "a";
    record(a, {});
    fs::copy(a, folder + "copy");
    record(folder + "again", {.timeMs = cTime + 86'400'123});
    record(folder + "lost", {.lostEvery = 1000});
    record(folder + "other", {.seed = 1 << 30});
    tColumn cmp, equal, again, lost, other;
    for (int i = 0; i <= runs; ++i)  // the first round fills the page cache
    {
        if (i == 1)
            cmp = equal = again = lost = other = {};
        cmp.run(cmpOf(a, folder + "copy"), 0);
        equal.run(tool + " diff " + a + " " + folder + "copy", 0);
        again.run(tool + " diff " + a + " " + folder + "again", 0);
        lost.run(tool + " diff " + a + " " + folder + "lost", 3);
        other.run(tool + " diff " + a + " " + folder + "other", 3);
    }
    cmp.show("cmp of the files", cmp);
    equal.show("diff of the same", cmp);
    again.show("of messages with other numbers and times", cmp);
    lost.show("every 1,000th message lost", cmp);
    other.show("no message in common", cmp);
    std::printf("  wanted: 0.3 x, for equal ones\n");
    return 0;
}
