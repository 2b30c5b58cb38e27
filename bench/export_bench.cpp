// How fast recordings are written in the formats that people open.
//
//   export_bench [FOLDER] [RUNS]
//
// In FOLDER (the system's temporary folder) a recording of 1,600,000 simulated spokes on one group (0.93 GB), a line of
// own ship's heading with every 64th, and one of 2,000,000 sentences (RMC, GGA, HDT, DBT, TTM, VDM), two a message. In
// turn, RUNS times (5), from the page cache: `kestova export --mcap --topics raw --compression none` of the first
// beside cp of its file and sync of the copy, since the export syncs; --mcap with all topics, with the greatest RssAnon
// of the process; --csv of the second.
#include <cmath>
#include <fcntl.h>
#include <fstream>
#include <spawn.h>
#include <sys/wait.h>

#include "bench/measure.h"
#include "bench/recordedfiles.h"
#include "bench/simulatedspokes.h"

namespace
{
constexpr std::size_t cSpokes = 1 << 15, cSpokeLen = 542, cRecords = 1'600'000, cHeadingEach = 64;
constexpr std::size_t cMessages = 1'000'000, cMost = 470'000;  // records in a file
constexpr std::uint64_t cFirstMs = 1'700'000'000'000;
constexpr char cLayout[] = R"({"spoke": {"match": {"0": "5aa5e000"}, "azimuth": {"at": 4, "width": 2, "per_turn": 4096},
    "range": {"at": 8, "width": 4, "unit": "m"}, "sequence": {"at": 12, "width": 4},
    "cells": {"at": 30, "count": 512, "bits": 8}, "order": "little", "reference": "bow"}})";

struct tRun
{
    double seconds;
    double anonymousMiB;
};

// Runs a program to its end.
tRun run(std::vector<std::string> arguments)
{
    std::vector<char*> argv;
    for (std::string& argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    const auto start = bench::tClock::now();
    pid_t pid = 0;
    if (posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0)
        std::exit(1);
    posix_spawn_file_actions_destroy(&actions);
    double greatest = 0;
    int status = 0;
    while (::waitpid(pid, &status, WNOHANG) == 0)
    {
        std::ifstream lines("/proc/" + std::to_string(pid) + "/status");
        for (std::string name; lines >> name;)
            if (double kib = 0; name == "RssAnon:" && lines >> kib)
                greatest = std::max(greatest, kib / 1024);
        ::usleep(5000);
    }
    if (status != 0)
    {
        std::fprintf(stderr, "export_bench: %s failed\n", arguments[1].c_str());
        std::exit(1);
    }
    return {bench::secondsSince(start), greatest};
}

std::string package(std::size_t number, tReadWriteType kind, const std::string& payload)
{
    std::string bytes = bench::packageOf(number, payload.size() + cPackageOverhead);
    auto* const head = reinterpret_cast<tRadarMsgPackage*>(bytes.data());
    head->msgInfo.rwType = kind;
    head->udpPort = static_cast<std::uint16_t>(6001 + kind);
    head->timestamp_ms = cFirstMs + number;
    return bytes.replace(cPackageHeadSize, payload.size(), payload);
}

// Finished files of so many packages, `perMs` of them a millisecond; returns their bytes.
template <typename tMake>
std::uint64_t record(const std::string& folder, std::size_t count, std::size_t perMs, tMake make)
{
    using namespace storage;
    std::filesystem::create_directory(folder);
    std::uint64_t all = 0;
    for (std::size_t first = 0; first < count; first += cMost)
    {
        const tDescriptor file(::open((folder + "/" + std::to_string(100 + first / cMost) + ".data").c_str(),
                                      O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
        std::vector<tIndexSlot> slots;
        std::string payload;
        for (std::size_t i = first; i < std::min(count, first + cMost); ++i)
        {
            const std::string bytes = make(i);
            slots.push_back(encode(tNormalIndexTable{cFirstMs + i / perMs, cPayloadPos + payload.size(),
                                                     static_cast<std::uint32_t>(bytes.size())}));
            payload += bytes;
        }
        const std::uint32_t magic = cDataFileHead;
        const tIndexHead head{static_cast<std::uint32_t>(slots.size()), 65'535};
        bench::put(file, &magic, sizeof magic, 0);
        bench::put(file, &head, sizeof head, cIndexHeadPos);
        bench::put(file, slots.data(), slots.size() * cIndexSlotSize, cIndexPos);
        bench::put(file, payload.data(), payload.size(), cPayloadPos);
        all += cPayloadPos + payload.size();
    }
    return all;
}

std::uint64_t recordRadar(const std::string& folder)
{
    const std::string spokes = bench::spokes(cSpokes * cSpokeLen);
    return record(folder, cRecords, 2, [&](std::size_t i) {
        if (i % cHeadingEach == 0)
            return package(i, eHeadingDev, "$HEHDT,1.0,T*2E\r\n");
        return package(i, eImageStream, spokes.substr(i % cSpokes * cSpokeLen, cSpokeLen));
    });
}

void recordSentences(const std::string& folder)
{
    const std::string messages[] = {"$GPRMC,092750.000,A,5321.6802,N,00630.3372,W,0.02,31.66,280511,,,A*43\r\n"
                                    "$GPGGA,092750.000,5321.6802,N,00630.3372,W,1,8,1.03,61.7,M,55.2,M,,*76\r\n",
                                    "$HEHDT,1.0,T*2E\r\n$SDDBT,68.0,f,20.7,M,11.3,F*3E\r\n",
                                    "$RATTM,11,3.21,123.4,T,12.1,210.5,T,0.5,4.2,N,TGT11,T,,092750.00,A\r\n"
                                    "!AIVDM,1,1,,A,139W9R002JPi?>LNuKSh:08t0000,0*20\r\n"};
    record(folder, cMessages, 1, [&](std::size_t i) { return package(i, eGpsDev, messages[i % 3]); });
}

void print(const char* what, const std::vector<double>& seconds, double amount, const char* unit)
{
    const auto figures = bench::figuresOf(seconds);
    std::printf("  %-34s %6.2f s (%.2f to %.2f), %.1f %s\n", what, figures.median, figures.low, figures.high,
                amount / figures.median, unit);
}
}  // namespace

int main(int argc, char** argv)
{
    bench::announce("export_bench");
    const bench::tScratch scratch(argc > 1 ? argv[1] : nullptr);
    const int runs = argc > 2 ? std::atoi(argv[2]) : 5;
    const std::string folder = scratch.path(), radar = folder + "radar", layout = folder + "layout.json";
    const double megabytes = static_cast<double>(recordRadar(radar)) / 1e6;
    recordSentences(folder + "sentences");
    std::ofstream(layout) << cLayout;
    std::vector<double> copying, raw, all, tables;
    double anonymousMiB = 0;
    for (int i = 0; i < runs; ++i)
    {
        const std::string to = folder + "made";
        copying.push_back(run({"sh", "-c", "cp -r " + radar + " " + to + " && sync " + to + "/*"}).seconds);
        std::filesystem::remove_all(to);
        raw.push_back(
            run({KESTOVA_TOOL, "export", radar, "--mcap", to, "--topics", "raw", "--compression", "none"}).seconds);
        std::filesystem::remove_all(to);
        const tRun whole = run({KESTOVA_TOOL, "export", radar, "--mcap", to, "--layout", layout});
        all.push_back(whole.seconds);
        anonymousMiB = std::max(anonymousMiB, whole.anonymousMiB);
        std::filesystem::remove_all(to);
        tables.push_back(run({KESTOVA_TOOL, "export", folder + "sentences", "--csv", to}).seconds);
        std::filesystem::remove_all(to);
    }
    print("cp and sync", copying, megabytes, "MB/s");
    print("--mcap --topics raw, uncompressed", raw, megabytes, "MB/s");
    std::printf("  %.2f x the time of cp (wanted: at most 2.5)\n",
                bench::figuresOf(raw).median / bench::figuresOf(copying).median);
    print("--mcap, all topics", all, megabytes, "MB/s (wanted: 60)");
    std::printf("  RssAnon %.0f MiB (wanted: at most 256)\n", anonymousMiB);
    print("--csv", tables, 2.0 * cMessages / 1e6, "million lines a second (wanted: 1)");
    return 0;
}
