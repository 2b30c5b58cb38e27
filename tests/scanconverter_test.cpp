#include "KestovaRecordings/scanconverter.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <numbers>
#include <random>

#include "KestovaRecordings/turn.h"

using namespace recordings;

namespace
{
constexpr double cRange = 512;  // metres: cells of one metre

// A turn of `count` spokes of 512 dark cells; `light` makes some bright.
class tSky
{
public:
    explicit tSky(std::size_t count) : m_count(count), m_cells(count, std::vector<unsigned char>(512)) {}

    void light(std::size_t spoke, std::size_t cell, unsigned char value = 255)
    {
        m_cells[spoke % m_count][cell] = value;
    }
    void lightAll()
    {
        for (auto& cells : m_cells)
            std::fill(cells.begin(), cells.end(), 255);
    }
    tTurn turn(std::size_t first = 0) const
    {
        tTurn turn;
        for (std::size_t i = first; i < first + m_count; ++i)
            turn.add(spoke(i % m_count), 0, 1000 + i);
        return turn;
    }
    tSpoke spoke(std::size_t i) const
    {
        tSpoke spoke;
        spoke.bearingFrom = double(i) / double(m_count);
        spoke.bearingTo = double((i + 1) % m_count) / double(m_count);
        spoke.cellM = 1;
        spoke.cells = {m_cells[i].data(), 512, 8, false};
        return spoke;
    }

private:
    std::size_t m_count;
    std::vector<std::vector<unsigned char>> m_cells;
};

std::vector<unsigned char> picture(const tTurn& turn, std::size_t size, double range = cRange)
{
    std::vector<unsigned char> pixels(size * size);
    tScanConverter(size).convert(turn.image(), range, pixels.data());
    return pixels;
}

// Where a place in the sky is in the picture, in pixels from its corner.
struct tPlace
{
    double x, y;
};
tPlace placeOf(double bearing, double metres, std::size_t size)
{
    const double angle = bearing * 2 * std::numbers::pi, distance = metres / cRange * double(size) / 2;
    return {double(size) / 2 + distance * std::sin(angle), double(size) / 2 - distance * std::cos(angle)};
}
}  // namespace

// 200 targets of three spokes by one cell, apart from one another: each is there at its full level, and nothing else
// is.
TEST(ScanConverterTest, LosesNoSmallTargetAndBlowsNoneUp)
{
    constexpr int cTargets = 200;
    std::mt19937 random(7);
    tSky sky(4096);
    std::vector<std::pair<double, double>> targets;  // bearing and metres of their middles
    for (int i = 0; i < cTargets; ++i)
    {
        const std::size_t spoke = std::size_t(i) * 4096 / cTargets + random() % 16, cell = 60 + random() % 450;
        for (std::size_t more = 0; more < 3; ++more)
            sky.light(spoke + more, cell, 200);
        targets.emplace_back((double(spoke) + 1.5) / 4096, double(cell) + 0.5);
    }
    for (const std::size_t size : {900u, 601u, 600u, 300u})
    {
        const auto pixels = picture(sky.turn(), size);
        std::vector<int> seen(cTargets);
        for (std::size_t p = 0; p < pixels.size(); ++p)
        {
            if (pixels[p] == 0)
                continue;
            EXPECT_EQ(pixels[p], 200);
            double nearest = 1e9;
            std::size_t which = 0;
            for (std::size_t i = 0; i < targets.size(); ++i)
            {
                const tPlace place = placeOf(targets[i].first, targets[i].second, size);
                const double away = std::hypot(double(p % size) + 0.5 - place.x, double(p / size) + 0.5 - place.y);
                which = away < nearest ? i : which;
                nearest = std::min(nearest, away);
            }
            // Half of what three spokes and a cell take there, and of a pixel's diagonal.
            const double length = 3 * 2 * std::numbers::pi * targets[which].second / 4096 * double(size) / 1024;
            EXPECT_LT(nearest, std::hypot(length, double(size) / 1024) / 2 + 1) << "target " << which;
            ++seen[which];
        }
        EXPECT_EQ(std::count(seen.begin(), seen.end(), 0), 0) << size;
    }
}

TEST(ScanConverterTest, HasNoSeamAndNoHole)
{
    for (const std::size_t spokes : {4096u, 360u, 60u, 2u})
    {
        tSky sky(spokes);
        sky.lightAll();
        for (const std::size_t size : {200u, 201u})
        {
            const auto pixels = picture(sky.turn(spokes / 3), size);
            for (std::size_t p = 0; p < pixels.size(); ++p)
            {
                const double x = double(p % size) + 0.5 - double(size) / 2,
                             y = double(p / size) + 0.5 - double(size) / 2;
                if (std::hypot(x, y) >= double(size) / 2 - 1)
                    continue;
                ASSERT_EQ(pixels[p], 255) << spokes << " spokes, size " << size << ", at " << x << ", " << y;
            }
        }
    }
}

TEST(ScanConverterTest, EveryEighthShowsItsOwnSector)
{
    for (int eighth = 0; eighth < 16; ++eighth)
    {
        tSky sky(16);
        sky.light(std::size_t(eighth), 300);
        const auto pixels = picture(sky.turn(), 400);
        const tPlace place = placeOf((eighth + 0.5) / 16, 300.5, 400);
        EXPECT_EQ(pixels[std::size_t(place.y) * 400 + std::size_t(place.x)], 255) << eighth;
        const tPlace other = placeOf((eighth + 1.5) / 16, 300.5, 400);
        EXPECT_EQ(pixels[std::size_t(other.y) * 400 + std::size_t(other.x)], 0) << eighth;
    }
}

TEST(TurnTest, HoldsTheLastTurnAlone)
{
    tSky sky(100), later(100);
    sky.lightAll();
    tTurn turn = sky.turn();
    EXPECT_NEAR(turn.covered(), 1, 1e-6);
    for (std::size_t i = 0; i < 150; ++i)
        turn.add(later.spoke(i % 100), 0, 5000 + i);
    EXPECT_EQ(turn.spokes(), 100u);
    EXPECT_EQ(turn.firstMs(), 5050u);
    const tPolarImage image = turn.image();
    EXPECT_EQ(std::count(image.cells.begin(), image.cells.end(), 255), 0);
    tTurn backwards;
    for (std::size_t i = 250; i-- > 0;)
        backwards.add(sky.spoke(i % 100), 0, i);
    EXPECT_NEAR(double(backwards.spokes()), 100, 1);
    tTurn standing;
    for (int i = 0; i < 1000; ++i)
        standing.add(sky.spoke(7), 0, std::uint64_t(i));
    EXPECT_EQ(standing.spokes(), 1u);
}

TEST(TurnTest, ShowsAGapThatTheAntennaPassedOver)
{
    tSky sky(100);
    tTurn turn;
    for (std::size_t i = 0; i < 150; ++i)
    {
        if (i % 100 < 20 || i % 100 >= 30)
            turn.add(sky.spoke(i % 100), 0, i);
    }
    EXPECT_NEAR(turn.shown(), 0.9, 1e-6);
}

// The range changes in mid-turn: what is dark stays dark, what is bright stays where it is.
TEST(TurnTest, SpokesOfSeveralRangesShareAPicture)
{
    tSky sky(64);
    for (std::size_t i = 0; i < 64; ++i)
        sky.light(i, i < 32 ? 400 : 100);
    tTurn turn;
    for (std::size_t i = 0; i < 64; ++i)
    {
        tSpoke spoke = sky.spoke(i);
        spoke.cellM = i < 32 ? 0.25 : 1;
        turn.add(spoke, 0, i);
    }
    const auto pixels = picture(turn, 800);
    for (int i = 0; i < 64; ++i)
    {
        const tPlace place = placeOf((i + 0.5) / 64, 100.12, 800);
        EXPECT_GT(pixels[std::size_t(place.y) * 800 + std::size_t(place.x)], 0) << i;
        const tPlace beyond = placeOf((i + 0.5) / 64, 110, 800);
        EXPECT_EQ(pixels[std::size_t(beyond.y) * 800 + std::size_t(beyond.x)], 0) << i;
    }
}
