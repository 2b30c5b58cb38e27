// What a picture costs: a turn of 4,096 spokes of 512 cells becomes pixels, and a moment of a large recording a file.
//
//   picture_bench [FOLDER]
//
// The turn is the simulated radar's: from its spokes to 900 x 900 pixels (600 and 300, too), beside a plain loop that
// takes one cell a pixel, the one under its middle, from the spokes as they came. Then a recording of 10 GB: 36 files
// of 476,091 records of 583 bytes, as long as spokes in packages, 1,638 a second, with whole indexes; their payload is
// a hole, which reads as zeros, but for the last 20 s, which are the simulated radar's. The picture of its end is made
// as kestova picture does it, with rings alone and with targets, and written as PNG. Medians of eleven runs; files go
// to FOLDER, by default the system's temporary folder, and are in the page cache.
#include <cmath>
#include <ctime>
#include <numbers>

#include "KestovaRecordings/archive.h"
#include "KestovaRecordings/picture.h"
#include "KestovaRecordings/scanconverter.h"
#include "KestovaRecordings/turnat.h"
#include "bench/measure.h"
#include "bench/recordedfiles.h"
#include "sessions/simulate/scene.h"
#include "sessions/simulate/simulatedradar.h"

namespace
{
constexpr int cRuns = 11;
constexpr double cRange = session::cRangeMetres, cCell = cRange / session::cEchoSamples;
using tSpokes = std::vector<session::tEchoes>;

template <typename tWork>
bench::tFigures measure(tWork work)
{
    std::vector<double> times;
    for (int i = 0; i < cRuns; ++i)
    {
        const auto start = bench::tClock::now();
        work();
        times.push_back(bench::secondsSince(start));
    }
    return bench::figuresOf(times);
}

// The processor's time of the work, which other programs do not lengthen.
template <typename tWork>
bench::tFigures measureProcessor(tWork work)
{
    const auto now = [] {
        timespec time{};
        ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
    };
    std::vector<double> times;
    for (int i = 0; i < 3 * cRuns; ++i)
    {
        const double start = now();
        work();
        times.push_back(now() - start);
    }
    return bench::figuresOf(times);
}

tSpokes simulatedTurn()
{
    const session::tScene scene(1);
    tSpokes spokes(session::cSpokesPerRevolution);
    for (std::size_t i = 0; i < spokes.size(); ++i)
        scene.echoes(i, static_cast<double>(i) / 1638.4, spokes[i]);
    return spokes;
}

recordings::tTurn turnOf(const tSpokes& spokes)
{
    recordings::tTurn turn;
    for (std::size_t i = 0; i < spokes.size(); ++i)
    {
        recordings::tSpoke spoke;
        spoke.bearingFrom = static_cast<double>(i) / static_cast<double>(spokes.size());
        spoke.bearingTo = static_cast<double>((i + 1) % spokes.size()) / static_cast<double>(spokes.size());
        spoke.cellM = cCell;
        spoke.cells = {spokes[i].data(), session::cEchoSamples, 8, false};
        turn.add(spoke, 0, 1 + i);
    }
    return turn;
}

// The yardstick: the cell under the middle of each pixel.
void sample(const tSpokes& spokes, std::size_t size, unsigned char* pixels)
{
    const double middle = static_cast<double>(size) / 2, cellsPerPixel = session::cEchoSamples / middle;
    const double spokesPerRadian = static_cast<double>(spokes.size()) / (2 * std::numbers::pi);
    for (std::size_t row = 0; row < size; ++row)
    {
        for (std::size_t column = 0; column < size; ++column)
        {
            const double x = static_cast<double>(column) + 0.5 - middle, y = middle - static_cast<double>(row) - 0.5;
            const auto cell = static_cast<std::size_t>(std::sqrt(x * x + y * y) * cellsPerPixel);
            const double angle = std::atan2(x, y);
            const auto spoke =
                static_cast<std::size_t>((angle < 0 ? angle + 2 * std::numbers::pi : angle) * spokesPerRadian);
            *pixels++ = cell < session::cEchoSamples ? spokes[spoke % spokes.size()][cell] : 0;
        }
    }
}

void compareConversion()
{
    const tSpokes spokes = simulatedTurn();
    const recordings::tTurn turn = turnOf(spokes);
    for (const std::size_t size : {900u, 600u, 300u})
    {
        std::vector<unsigned char> pixels(size * size);
        recordings::tScanConverter converter(size);
        const auto plain = measureProcessor([&] { sample(spokes, size, pixels.data()); });
        recordings::tPolarImage image;
        const auto laid = measureProcessor([&] { image = turn.image(); });
        const auto converted = measureProcessor([&] { converter.convert(image, cRange, pixels.data()); });
        const auto both = measureProcessor([&] { converter.convert(turn.image(), cRange, pixels.data()); });
        std::printf(
            "%zu x %zu: %.2f ms (%.2f to %.2f), of it rings %.2f ms, pixels %.2f ms; plain loop %.2f ms, ratio %.2f\n",
            size, size, both.median * 1e3, both.low * 1e3, both.high * 1e3, laid.median * 1e3, converted.median * 1e3,
            plain.median * 1e3, both.median / plain.median);
    }
}

using tSlots = std::vector<storage::tIndexSlot>;

void finishFile(const tDescriptor& file, const tSlots& slots, std::uint64_t end)
{
    const std::uint32_t magic = storage::cDataFileHead;
    const storage::tIndexHead head{static_cast<std::uint32_t>(slots.size()), 1000};
    bench::put(file, &magic, sizeof magic, 0);
    bench::put(file, &head, sizeof head, storage::cIndexHeadPos);
    bench::put(file, slots.data(), slots.size() * storage::cIndexSlotSize, storage::cIndexPos);
    if (::ftruncate(file.get(), static_cast<off_t>(end)) != 0)
        std::exit(1);
}

tDescriptor newFile(const std::string& path)
{
    return tDescriptor(::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
}

// Returns the time behind the last record.
std::uint64_t makeHollow(const std::string& path, std::uint64_t firstMs)
{
    constexpr std::uint32_t cLength = 542 + cPackageOverhead;
    tSlots slots;
    const auto timeOf = [&](std::uint64_t i) { return firstMs + i * 10'000 / 16'384; };
    for (std::uint64_t i = 0; i < storage::cIndexCapacity; ++i)
        slots.push_back(encode(storage::tNormalIndexTable{timeOf(i), storage::cPayloadPos + i * cLength, cLength}));
    finishFile(newFile(path), slots, storage::cPayloadPos + slots.size() * cLength);
    return timeOf(storage::cIndexCapacity);
}

void makeLast(const std::string& path, std::uint64_t firstMs)
{
    session::tSimulation simulation;
    simulation.startMs = firstMs;
    simulation.endNs = 20'000'000'000;
    simulation.streams.set();
    session::tSimulatedRadar radar(simulation);
    session::tSimulatedDatagram datagram;
    tSlots slots;
    std::string payload;
    while (radar.next(datagram))
    {
        std::string package = bench::packageOf(slots.size(), datagram.bytes.size() + cPackageOverhead);
        auto* const head = reinterpret_cast<tRadarMsgPackage*>(package.data());
        head->msgInfo.rwType = datagram.kind;
        head->udpPort = static_cast<std::uint16_t>(6001 + datagram.kind);
        package.replace(cPackageHeadSize, datagram.bytes.size(), datagram.bytes);
        slots.push_back(encode(storage::tNormalIndexTable{firstMs + datagram.dueNs / 1'000'000,
                                                          storage::cPayloadPos + payload.size(),
                                                          static_cast<std::uint32_t>(package.size())}));
        payload += package;
    }
    const tDescriptor file = newFile(path);
    bench::put(file, payload.data(), payload.size(), storage::cPayloadPos);
    finishFile(file, slots, storage::cPayloadPos + payload.size());
}

std::vector<utils::tSpokeLayout> layouts()
{
    std::vector<utils::tSpokeLayout> layouts;
    std::string error;
    if (!utils::parseSpokeLayouts(
            R"({"match": {"0": "5aa5e000"}, "azimuth": {"at": 4, "width": 2, "per_turn": 4096},
                "range": {"at": 8, "width": 4}, "sequence": {"at": 12, "width": 4},
                "cells": {"at": 30, "count": 512, "bits": 8}, "order": "little", "reference": "bow"})",
            layouts, error))
        std::exit(1);
    return layouts;
}

void drawEnd(const std::string& folder, bool targets)
{
    const auto found = recordings::findAllRecordings({folder}, ".data");
    const recordings::tTimeRange recording(found.files, ".data");
    recordings::tTurnAt turn =
        recordings::turnAt(recording, layouts(), recording.lastMs(), recordings::eUp::eAsReceived);
    if (targets)
        turn.navigation = recordings::navigationAt(recording, recording.lastMs());
    recordings::tPictureOptions options;
    options.rings = true;
    options.targets = targets;
    recordings::tPicture picture(options);
    picture.draw(turn.turn, recordings::factsOf(turn));
    picture.writePng(folder + "radar.png");
    if (turn.turn.spokes() != session::cSpokesPerRevolution)
        std::exit(1);
}

void drawFromLarge(const std::string& folder)
{
    constexpr int cHollow = 36;
    std::uint64_t time = 1'700'000'000'000;
    for (int i = 0; i < cHollow; ++i)
        time = makeHollow(folder + std::to_string(100 + i) + ".data", time);
    makeLast(folder + std::to_string(100 + cHollow) + ".data", time);
    for (const bool targets : {false, true})
    {
        const auto drawn = measure([&] { drawEnd(folder, targets); });
        std::printf("a moment in 10 GB%s: %.3f s (%.3f to %.3f)\n", targets ? ", with targets" : "", drawn.median,
                    drawn.low, drawn.high);
    }
}
}  // namespace

int main(int argc, char** argv)
{
    bench::announce("picture_bench");
    compareConversion();
    const bench::tScratch scratch(argc > 1 ? argv[1] : nullptr);
    drawFromLarge(scratch.path());
}
