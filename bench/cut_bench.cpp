// What a cut costs: each half of a recording of 1 GB, all streams, against cp and sync of as many bytes.
//
//   cut_bench [FOLDER]    makes its files below FOLDER (the system's temporary folder); 3 GB
#include <cstring>
#include <fcntl.h>
#include <filesystem>

#include "KestovaRecordings/cut.h"
#include "KestovaRecordings/recordingoutput.h"
#include "KestovaStorage/radarmsgpackage.h"
#include "measure.h"

namespace
{
using namespace recordings;

constexpr std::uint64_t cRecords = 470'000;
constexpr std::size_t cMessage = 2080;
constexpr std::uint64_t cStartMs = 1'715'934'600'000;
constexpr int cRounds = 5;

// Mostly spokes, now and then a message of another stream.
std::string package(std::uint64_t number)
{
    tRadarMsgPackage head{};
    std::memcpy(&head, "Quorvale", 8);
    const bool isSpoke = number % 50 != 0;
    const auto other = static_cast<tReadWriteType>(eAisDev + number / 50 % 4);
    head.msgInfo = {1, 2, eReadType, isSpoke ? tReadWriteType{eImageStream} : other, 1};
    head.packCnt = static_cast<std::uint32_t>(number);
    head.udpAddr = 0x010011EF + (std::uint32_t{head.msgInfo.rwType} << 24);
    head.udpPort = static_cast<std::uint16_t>(6000 + head.msgInfo.rwType);
    head.timestamp_ms = cStartMs + number / 2;
    head.msgLen = static_cast<std::uint16_t>(isSpoke ? cMessage : 70);
    std::string bytes(reinterpret_cast<const char*>(&head), sizeof(tRadarMsgPackage));
    for (std::size_t i = 0; i < head.msgLen; ++i)
        bytes += static_cast<char>(number * 31 + i * i / 7);
    return bytes + "ZQ_Radar";
}

void record(const std::string& folder)
{
    tRecordingOutput output(folder);
    output.startFileByTime({}, "bench");
    for (std::uint64_t i = 0; i < cRecords; ++i)
        output.add({cStartMs + i / 2, static_cast<int>(i * 37 % 1000), package(i)});
    output.commit();
}

void require(bool done, const char* what)
{
    if (done)
        return;
    std::fprintf(stderr, "%s failed\n", what);
    std::exit(1);
}

double secondsOfCut(const std::string& from, const std::string& to, bool firstHalf)
{
    tCutOptions options;
    options.paths = {from};
    options.folder = to;
    (firstHalf ? options.end : options.start) = tMoment{tMoment::eFraction, 0.5};
    const auto start = bench::tClock::now();
    const tCutResult result = cutRecordings(options, [](double) { return true; });
    const double seconds = bench::secondsSince(start);
    require(result.complete && result.records > cRecords / 2 - 10, "cut");
    std::filesystem::remove_all(to);
    return seconds;
}

double secondsOfCopy(const std::string& from, const std::string& to)
{
    const auto start = bench::tClock::now();
    require(std::system(("cp '" + from + "' '" + to + "' && sync '" + to + "'").c_str()) == 0, "cp");
    const double seconds = bench::secondsSince(start);
    std::filesystem::remove(to);
    return seconds;
}

// Half the bytes, in a file without holes.
void makeHalf(const std::string& folder, const std::string& half)
{
    const std::uint64_t bytes = cRecords / 2 * (cMessage + 41);
    require(std::system(
                ("cat '" + folder + "'/*.data | tail -c " + std::to_string(bytes) + " >'" + half + "'").c_str()) == 0,
            "cat");
}

void compare(const std::string& recording, const std::string& half, const std::string& out, bool firstHalf)
{
    std::vector<double> cuts, copies;
    for (int round = 0; round < cRounds; ++round)
    {
        ::sync();
        copies.push_back(secondsOfCopy(half, out));
        ::sync();
        cuts.push_back(secondsOfCut(recording, out, firstHalf));
    }
    const bench::tFigures cut = bench::figuresOf(cuts), copy = bench::figuresOf(copies);
    std::printf("cut%sHalf       %.3f s (%.3f to %.3f), cp and sync %.3f s (%.3f to %.3f): %.2f times\n",
                firstHalf ? "First" : "Second", cut.median, cut.low, cut.high, copy.median, copy.low, copy.high,
                cut.median / copy.median);
}
}  // namespace

int main(int argc, char** argv)
{
    bench::announce("cut of half of 1 GB, all streams; reach: 1.3 times cp and sync of half the bytes");
    const bench::tScratch scratch(argc > 1 ? argv[1] : nullptr);
    record(scratch.path() + "recording");
    makeHalf(scratch.path() + "recording", scratch.path() + "half");
    for (const bool firstHalf : {true, false})
        compare(scratch.path() + "recording", scratch.path() + "half", scratch.path() + "out", firstHalf);
    return 0;
}
