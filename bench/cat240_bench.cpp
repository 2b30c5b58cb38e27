// How fast ASTERIX category 240 is read and written, beside copying the bytes.
//
//   cat240_bench
//
// A turn of 4,096 spokes of 512 cells of 8 bits, 547 bytes a datagram. Reading: readCat240, and tSpokeReader, which
// also puts split spokes together. Writing: appendCat240 into a string that is used again. Beside them: memcpy of each
// datagram into a buffer that is used again. 50 turns a run, median of 9 runs each, in turn.
#include <cstring>

#include "KestovaRecordings/cat240.h"
#include "KestovaRecordings/spokereader.h"
#include "bench/measure.h"

namespace
{
using namespace recordings;
using bench::tClock;

constexpr int cRuns = 9, cTurns = 50;
constexpr std::size_t cSpokes = 4096, cCells = 512, cDatagram = 547;

tCat240Video spoke(std::size_t number, const std::string& cells)
{
    tCat240Video video;
    video.sequence = static_cast<std::uint32_t>(number);
    video.startAzimuth = static_cast<std::uint16_t>(number * 16);
    video.endAzimuth = static_cast<std::uint16_t>(number * 16 + 16);
    video.cellM = 21.7;
    video.cells = {reinterpret_cast<const unsigned char*>(cells.data()), cCells, 8, true};
    video.timeOfDay = static_cast<std::uint32_t>(number);
    return video;
}

std::string cellsOf(std::size_t number)
{
    std::string cells(cCells, '\0');
    for (std::size_t i = 0; i < cCells; ++i)
        cells[i] = static_cast<char>(i * 31 + number);
    return cells;
}

struct tCount final : iCat240Sink, iSpokeSink
{
    void onVideo(const tCat240Video& video) override { sum += video.cells.count + video.sequence; }
    void onSummary(const tCat240Summary&) override {}
    void onSpoke(const tSpoke& one, const tMessagePlace&) override { sum += one.cells.count; }
    using iSpokeSink::onSummary;
    std::uint64_t sum = 0;
};

// Returns gigabytes of datagrams a second.
template <typename tWork>
double speedOf(tWork work)
{
    const auto start = tClock::now();
    for (int turn = 0; turn < cTurns; ++turn)
        for (std::size_t number = 0; number < cSpokes; ++number)
            work(number);
    return static_cast<double>(cTurns) * cSpokes * cDatagram / bench::secondsSince(start) / 1e9;
}

void print(const char* what, const std::vector<double>& speeds, double copying)
{
    const auto figures = bench::figuresOf(speeds);
    std::printf("  %-12s %6.2f GB/s (%.2f to %.2f), %4.1f ns a spoke, %.2f x memcpy\n", what, figures.median,
                figures.low, figures.high, cDatagram / figures.median, figures.median / copying);
}
}  // namespace

int main()
{
    bench::announce("cat240_bench: turns of 4,096 spokes of 512 cells, 547 bytes a datagram");
    std::vector<std::string> cells, datagrams(cSpokes);
    for (std::size_t number = 0; number < cSpokes; ++number)
    {
        cells.push_back(cellsOf(number));
        if (!appendCat240(spoke(number, cells.back()), datagrams[number]) || datagrams[number].size() != cDatagram)
            return 1;
    }
    utils::tSpokeLayout layout;
    layout.source = utils::eSpokeCat240;
    tSpokeReader reader({layout});
    tCount count;
    std::string written;
    char copied[cDatagram];
    std::vector<double> copying, reading, spokes, writing;
    for (int run = 0; run < cRuns; ++run)
    {
        copying.push_back(speedOf([&](std::size_t number) {
            std::memcpy(copied, datagrams[number].data(), cDatagram);
            count.sum += static_cast<unsigned char>(*const_cast<volatile char*>(&copied[number % cDatagram]));
        }));
        reading.push_back(speedOf([&](std::size_t number) { readCat240(datagrams[number], count); }));
        spokes.push_back(speedOf([&](std::size_t number) { reader.read(datagrams[number], {}, count); }));
        writing.push_back(speedOf([&](std::size_t number) {
            written.clear();
            appendCat240(spoke(number, cells[number]), written);
            count.sum += static_cast<unsigned char>(written[cDatagram - 1]);
        }));
    }
    const double memcpySpeed = bench::figuresOf(copying).median;
    print("memcpy", copying, memcpySpeed);
    print("readCat240", reading, memcpySpeed);
    print("tSpokeReader", spokes, memcpySpeed);
    print("appendCat240", writing, memcpySpeed);
    std::printf("  wanted: at least 0.30 each (%llu)\n", static_cast<unsigned long long>(count.sum % 10));
    return 0;
}
