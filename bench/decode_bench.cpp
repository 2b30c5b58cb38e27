// What the bytes of a recording mean, beside reading them.
//
//   decode_bench [FOLDER]
//
// A recording of 450,000 simulated spokes (265 MB) is made in FOLDER (the system's temporary folder). Five times each,
// in turn, from the page cache and by one thread: every record read through tDataFile; the same and every spoke read by
// the layout of examples/radars.json. Then 1,000,000 sentences as a bridge
// sends them (RMC, GGA, HDT, DPT, TTM, VDM of types 1 and 5), in messages of one to three, through tSentenceReader.
#include <cstring>

#include "KestovaRecordings/packagecontents.h"
#include "KestovaRecordings/sentencereader.h"
#include "KestovaRecordings/spokereader.h"
#include "KestovaStorage/datafile.h"
#include "bench/measure.h"
#include "bench/recordedfiles.h"
#include "bench/simulatedspokes.h"

namespace
{
using namespace recordings;

constexpr std::size_t cSpokeLen = 542;
constexpr std::size_t cSpokes = 1 << 14;  // different ones
constexpr std::size_t cRecords = 450'000;
constexpr std::size_t cSentences = 1'000'000;
constexpr int cRounds = 5;
constexpr char cLayout[] = R"({"match": {"0": "5aa5e000"}, "azimuth": {"at": 4, "width": 2, "per_turn": 4096},
    "range": {"at": 8, "width": 4, "unit": "m"}, "sequence": {"at": 12, "width": 4},
    "time": {"at": 16, "width": 8, "unit": "ms"}, "cells": {"at": 30, "count": 512, "bits": 8},
    "order": "little", "reference": "bow"})";

[[noreturn]] void fail(const char* what)
{
    std::fprintf(stderr, "decode_bench: %s\n", what);
    std::exit(1);
}

struct tCount final : iSpokeSink, iSentenceSink
{
    void onSpoke(const tSpoke& spoke, const tMessagePlace&) override
    {
        ++spokes;
        sum += spoke.cells.count + static_cast<std::uint64_t>(spoke.bearingFrom * 4096);
    }
    void onSentence(const tSentence& sentence) override { sentences += sentence.valid ? 1 : 0; }
    std::uint64_t spokes = 0, sum = 0, sentences = 0;
};

// Calls `take` with the bytes of every record; returns the seconds that it took.
template <typename tTake>
double secondsToRead(const std::string& path, tTake take)
{
    const auto start = bench::tClock::now();
    storage::tDataFile file;
    if (!file.open(path))
        fail("the recording cannot be opened");
    std::array<storage::tDataFileSegment, 128> run;
    for (std::size_t i = 0; i < file.recordCount();)
    {
        const std::size_t read = file.readRun(i, run.size(), run.data());
        if (read == 0)
            fail("a record cannot be read");
        for (std::size_t k = 0; k < read; ++k)
            take(std::string_view(run[k].bytes, run[k].len), run[k].timeMs);
        i += read;
    }
    return bench::secondsSince(start);
}

void record(const std::string& path)
{
    const std::string spokes = bench::spokes(cSpokes * cSpokeLen);
    std::size_t n = 0;
    bench::recordFile(path, cRecords, cSpokeLen + cPackageOverhead, 1'700'000'000'000);
    const tDescriptor file(::open(path.c_str(), O_RDWR | O_CLOEXEC));
    for (std::size_t i = 0; i < cRecords; ++i, n = (n + 1) % cSpokes)
        bench::put(file, &spokes[n * cSpokeLen], cSpokeLen,
                   storage::cPayloadPos + i * (cSpokeLen + cPackageOverhead) + cPackageHeadSize);
}

void measureSpokes(const std::string& folder)
{
    const std::string path = folder + "spokes.data";
    record(path);
    std::vector<utils::tSpokeLayout> layouts;
    std::string error;
    if (!utils::parseSpokeLayouts(cLayout, layouts, error))
        fail(error.c_str());
    std::vector<double> reading, decoding;
    for (int round = 0; round < cRounds; ++round)
    {
        std::uint64_t bytes = 0;
        reading.push_back(
            secondsToRead(path, [&](std::string_view segment, std::uint64_t) { bytes += segment.size(); }));
        tSpokeReader reader(layouts);
        tCount count;
        decoding.push_back(secondsToRead(path, [&](std::string_view segment, std::uint64_t timeMs) {
            if (const auto package = viewPackage(segment))
                reader.read(package->payload, {timeMs, 0}, count);
        }));
        if (count.spokes != cRecords || bytes != cRecords * (cSpokeLen + cPackageOverhead))
            fail("not every record is a spoke");
    }
    const auto read = bench::figuresOf(reading), decoded = bench::figuresOf(decoding);
    std::printf("  tDataFile, %zu records: %.1f ns a record (%.1f to %.1f)\n", cRecords, read.median / cRecords * 1e9,
                read.low / cRecords * 1e9, read.high / cRecords * 1e9);
    std::printf("  the same and spokes by a layout: %.1f ns a record (%.1f to %.1f)\n", decoded.median / cRecords * 1e9,
                decoded.low / cRecords * 1e9, decoded.high / cRecords * 1e9);
    std::printf("  %.2f x the speed of reading (wanted: 0.7)\n", read.median / decoded.median);
}

std::string withChecksum(const std::string& body, char start = '$')
{
    unsigned char sum = 0;
    for (const char c : body)
        sum = static_cast<unsigned char>(sum ^ static_cast<unsigned char>(c));
    char end[8];
    std::snprintf(end, sizeof end, "*%02X\r\n", sum);
    return start + body + end;
}

std::vector<std::string> sentences()
{
    return {withChecksum("GPRMC,092750.000,A,5321.6802,N,00630.3372,W,0.02,31.66,280511,,,A"),
            withChecksum("GPGGA,092750.000,5321.6802,N,00630.3372,W,1,8,1.03,61.7,M,55.2,M,,"),
            withChecksum("HEHDT,274.07,T"),
            withChecksum("SDDPT,12.4,0.8,100"),
            withChecksum("RATTM,11,3.21,123.4,T,12.1,210.5,T,0.5,4.2,N,TGT11,T,,092750.00,A"),
            withChecksum("AIVDM,1,1,,B,177KQJ5000G?tO`K>RA1wUbN0TKH,0", '!'),
            withChecksum("AIVDM,2,1,1,A,55?MbV02;H;s<HtKR20EHE:0@T4@Dn2222222216L961O5Gf0NSQEp6ClRp8,0", '!') +
                withChecksum("AIVDM,2,2,1,A,88888888880,2", '!')};
}

void measureSentences()
{
    const std::vector<std::string> lines = sentences();
    std::vector<std::string> messages;
    for (std::size_t i = 0, n = 0; n < 7'000; ++i)
    {
        messages.emplace_back();
        for (std::size_t k = 0; k <= i % 3; ++k, ++n)
            messages.back() += lines[n % lines.size()];
    }
    std::vector<double> rates;
    std::uint64_t bytes = 0;
    for (int round = 0; round < cRounds; ++round)
    {
        tSentenceReader reader;
        tCount count;
        bytes = 0;
        const auto start = bench::tClock::now();
        for (std::size_t i = 0; count.sentences < cSentences; i = (i + 1) % messages.size())
        {
            reader.read(messages[i], 1'306'574'870'000, count);
            bytes += messages[i].size();
        }
        rates.push_back(static_cast<double>(count.sentences) / bench::secondsSince(start) / 1e6);
    }
    const auto rate = bench::figuresOf(rates);
    std::printf("  sentences: %.2f million a second a core (%.2f to %.2f), %.0f bytes each (wanted: 2)\n", rate.median,
                rate.low, rate.high, static_cast<double>(bytes) / cSentences);
}
}  // namespace

int main(int argc, char** argv)
{
    bench::announce("decode_bench: spokes and sentences");
    const bench::tScratch scratch(argc > 1 ? argv[1] : nullptr);
    measureSpokes(scratch.path());
    measureSentences();
    return 0;
}
