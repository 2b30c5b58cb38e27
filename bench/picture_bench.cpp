// What a picture costs: a turn of 4,096 spokes of 512 cells becomes pixels, and a moment of a large recording a file.
//
//   picture_bench [FOLDER]
//
// The turn is the simulated radar's. From its spokes to 900 x 900 pixels, beside a plain loop that takes one cell a
// pixel, the one under its middle, from the spokes as they came; at 600 and 300 pixels too. Then a recording of 10 GB:
// ten files of 476,091 packages of 2,160 bytes whose payload was never written, which the file system keeps as a hole,
// and one with 20 s of the simulated radar behind them. The picture of its end is made with rings and targets, as
// kestova picture does it, and written as PNG. Medians of eleven runs; files go to FOLDER, by default the system's
// temporary folder.
#include <cmath>
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
            const auto spoke = static_cast<std::size_t>((angle < 0 ? angle + 2 * std::numbers::pi : angle) * spokesPerRadian);
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
        const auto plain = measure([&] { sample(spokes, size, pixels.data()); });
        recordings::tPolarImage image;
        const auto laid = measure([&] { image = turn.image(); });
        const auto converted = measure([&] { converter.convert(image, cRange, pixels.data()); });
        const auto both = measure([&] { converter.convert(turn.image(), cRange, pixels.data()); });
        std::printf("%zu x %zu: %.2f ms (%.2f to %.2f), of it rings %.2f ms, pixels %.2f ms; plain loop %.2f ms, ratio %.2f\n",
                    size, size, both.median * 1e3, both.low * 1e3, both.high * 1e3, laid.median * 1e3,
                    converted.median * 1e3, plain.median * 1e3, both.median / plain.median);
    }
}
