#include "KestovaRecordings/picture.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <numbers>

#include "KestovaRecordings/turnat.h"
#include "KestovaStorage/datafileconverter.h"
#include "KestovaStorage/packageview.h"
#include "sessions/simulate/simulatedradar.h"
#include "support/recording.h"
#include "support/tempdir.h"

using namespace recordings;

namespace
{
constexpr std::uint64_t cStart = 1'715'940'000'000;
constexpr std::uint64_t cSpokes = 6000;
constexpr double cSpokesPerSecond = 1638.4;
constexpr std::size_t cTurn = session::cSpokesPerRevolution;

std::string packageOf(const session::tSimulatedDatagram& datagram, std::uint32_t number)
{
    tRadarMsgPackage head{};
    std::memcpy(&head, cPackageHeadMark, cPackageMarkSize);
    head.msgInfo.rwType = datagram.kind;
    head.packCnt = number;
    head.udpAddr = 0x010011ef;
    head.udpPort = static_cast<std::uint16_t>(6001 + datagram.kind);
    head.msgLen = static_cast<std::uint16_t>(datagram.bytes.size());
    return std::string(reinterpret_cast<const char*>(&head), cPackageHeadSize) + datagram.bytes + cPackageEndMark;
}

std::vector<utils::tSpokeLayout> layouts()
{
    std::vector<utils::tSpokeLayout> layouts;
    std::string error;
    EXPECT_TRUE(utils::parseSpokeLayouts(
        R"({"match": {"0": "5aa5e000"}, "azimuth": {"at": 4, "width": 2, "per_turn": 4096},
            "range": {"at": 8, "width": 4, "unit": "m"}, "sequence": {"at": 12, "width": 4},
            "cells": {"at": 30, "count": 512, "bits": 8}, "order": "little", "reference": "bow"})",
        layouts, error))
        << error;
    return layouts;
}

// A turn and a half of the simulated radar, recorded.
class tPictureTest : public testing::Test
{
protected:
    tPictureTest() : scene(cSeed)
    {
        session::tSimulation simulation;
        simulation.seed = cSeed;
        simulation.startMs = cStart;
        simulation.streams.set();
        simulation.spokeLimit = cSpokes;
        session::tSimulatedRadar radar(simulation);
        tSegments segments;
        session::tSimulatedDatagram datagram;
        while (radar.next(datagram))
            segments.push_back({cStart + datagram.dueNs / 1'000'000,
                                packageOf(datagram, static_cast<std::uint32_t>(segments.size()))});
        recordByHand(file, segments);
    }

    tTurnAt turn(eUp up = eUp::eAsReceived, std::uint64_t atMs = cStart + 60'000) const
    {
        return turnAt(tTimeRange({file}, ".data"), layouts(), atMs, up);
    }
    // Grey levels.
    static std::vector<unsigned char> levels(const tTurn& turn, std::size_t size)
    {
        tPictureOptions options;
        options.size = size;
        options.palette = ePalette::eGrey;
        tPicture picture(options);
        picture.draw(turn, {});
        std::vector<unsigned char> levels(size * size);
        for (std::size_t i = 0; i < levels.size(); ++i)
            levels[i] = static_cast<unsigned char>(picture.pixels()[i]);
        return levels;
    }
    // The echoes of each azimuth, as the radar saw them last.
    std::vector<session::tEchoes> truth() const
    {
        std::vector<session::tEchoes> spokes(cTurn);
        for (std::uint64_t n = cSpokes - cTurn; n < cSpokes; ++n)
            scene.echoes(n, static_cast<double>(n) / cSpokesPerSecond, spokes[n % cTurn]);
        return spokes;
    }

    static constexpr std::uint64_t cSeed = 5;
    tTempDir dir;
    const std::string file = dir.file("made.data");
    const session::tScene scene;
};
}  // namespace

// Each pixel shows what the waters have there: the cell under its middle at least, and no more than what lies within
// its edges.
TEST_F(tPictureTest, showsTheWatersToThePixel)
{
    constexpr std::size_t cSize = 400;
    const auto pixels = levels(turn().turn, cSize);
    const auto spokes = truth();
    const double middle = cSize / 2.0;
    for (std::size_t p = 0; p < pixels.size(); ++p)
    {
        const double x = double(p % cSize) + 0.5 - middle, y = middle - double(p / cSize) - 0.5;
        const double away = std::hypot(x, y);
        // The centre needs no oracle of its own; text stands in the corners.
        if (away < 20 || away > middle - 2)
            continue;
        const auto spokeAt = [&](double dx, double dy) {
            return std::fmod(std::atan2(x + dx, y + dy) / (2 * std::numbers::pi) + 1, 1.0) * double(cTurn);
        };
        const auto cellAt = [&](double distance) { return distance / middle * double(session::cEchoSamples); };
        const auto under = std::size_t(spokeAt(0, 0));
        ASSERT_GE(pixels[p], spokes[under][std::size_t(cellAt(away))]) << x << ", " << y;
        int most = 0;
        const double half = std::numbers::sqrt2 / 2, wide = half / away / (2 * std::numbers::pi) * double(cTurn);
        for (auto spoke = int(double(under) - wide - 1); spoke <= int(double(under) + wide + 2); ++spoke)
            for (auto cell = int(cellAt(away - half)); cell <= std::min(511, int(cellAt(away + half))); ++cell)
                most = std::max(most, int(spokes[std::size_t(spoke + int(cTurn)) % cTurn][std::size_t(cell)]));
        ASSERT_LE(pixels[p], most) << x << ", " << y;
    }
}

TEST_F(tPictureTest, showsTargetsAndTheCoastWhereTheyAre)
{
    constexpr std::size_t cSize = 900;
    const auto pixels = levels(turn().turn, cSize);
    const auto spokes = truth();
    const auto at = [&](double east, double north) {
        const double scale = cSize / 2.0 / session::cRangeMetres;
        return std::size_t(cSize / 2.0 - north * scale) * cSize + std::size_t(cSize / 2.0 + east * scale);
    };
    for (std::size_t i = 0; i < scene.targetCount(); ++i)
    {
        // When the antenna looked at it last.
        double time = 0;
        double east = 0, north = 0;
        for (std::uint64_t n = cSpokes - cTurn; n < cSpokes; ++n)
        {
            const double then = double(n) / cSpokesPerSecond;
            const auto target = scene.target(i, then), own = scene.ownShip(then);
            const double bearing = std::atan2(target.x - own.x, target.y - own.y) / (2 * std::numbers::pi);
            if (std::size_t(std::lround((bearing + 1) * double(cTurn))) % cTurn == n % cTurn)
                time = then;
        }
        east = scene.target(i, time).x - scene.ownShip(time).x;
        north = scene.target(i, time).y - scene.ownShip(time).y;
        EXPECT_GE(pixels[at(east, north)], 250) << "target " << i;
    }
    // Along a bearing the coast is where the echoes become those of land, behind the clutter around the ship.
    const auto coastAt = [&](std::size_t azimuth) {
        const auto afar = spokes[azimuth].begin() + 60;
        return std::find_if(afar, spokes[azimuth].end(), [](int e) { return e > 130; }) - spokes[azimuth].begin();
    };
    int checked = 0;
    for (std::size_t azimuth = 300; azimuth < 1700; ++azimuth)
    {
        const auto coast = coastAt(azimuth);
        const bool isSteep = std::abs(coastAt(azimuth - 6) - coast) > 1 || std::abs(coastAt(azimuth + 6) - coast) > 1;
        if (isSteep || coast < 70 ||
            coast > 500)  // for a check in one pixel; or where the clutter hides it, or none is
            continue;
        const double angle = (double(azimuth) + 0.5) / cTurn * 2 * std::numbers::pi;
        const double cell = session::cRangeMetres / 512.0, on = (double(coast) + 0.5) * cell, off = on - 5 * cell;
        EXPECT_GT(pixels[at(on * std::sin(angle), on * std::cos(angle))], 130) << azimuth;
        EXPECT_LT(pixels[at(off * std::sin(angle), off * std::cos(angle))], 130) << azimuth;
        ++checked;
    }
    EXPECT_GT(checked, 5);
}

TEST_F(tPictureTest, isTheSameOfACompressedRecording)
{
    const auto plain = levels(turn().turn, 300);
    std::string compressed, error;
    ASSERT_TRUE(storage::tDataFileConverter::Compress(file, ".data", nullptr, &compressed, &error)) << error;
    const tTurnAt again = turnAt(tTimeRange({compressed}, ".data"), layouts(), cStart + 60'000, eUp::eAsReceived);
    EXPECT_EQ(levels(again.turn, 300), plain);
}

TEST_F(tPictureTest, holdsTheLastTurnUpToThePlaceAndNothingLater)
{
    const tTurnAt whole = turn();
    EXPECT_EQ(whole.turn.spokes(), cTurn);
    EXPECT_TRUE(whole.isNumbered);
    EXPECT_EQ(whole.missing, 0u);
    const tTurnAt some = turn(eUp::eAsReceived, cStart + 1000);
    EXPECT_NEAR(double(some.turn.spokes()), cSpokesPerSecond, 3);
    EXPECT_LE(some.turn.lastMs(), cStart + 1000);
    EXPECT_NEAR(some.turn.covered(), 0.4, 0.01);
}

// The scene's bow yaws by up to three degrees, and its echoes count from the bow.
TEST_F(tPictureTest, turnsBearingsFromTheBowToTheNorth)
{
    const tTurnAt asReceived = turn(), north = turn(eUp::eNorth);
    EXPECT_EQ(asReceived.up, utils::eReferenceBow);
    EXPECT_EQ(north.up, utils::eReferenceNorth);
    EXPECT_FALSE(north.isHeadingOld);
    EXPECT_NE(levels(north.turn, 200), levels(asReceived.turn, 200));
    // No wedge is dark, although the bow turned against the antenna.
    const tPolarImage image = north.turn.image();
    for (std::size_t sector = 0; sector < image.sectors(); ++sector)
    {
        unsigned char most = 0;
        for (std::size_t ring = 0; ring < image.rings; ++ring)
            most = std::max(most, image.ring(ring)[sector]);
        ASSERT_GT(most, 0) << sector;
    }
}

TEST_F(tPictureTest, cutsRevolutionsAtZeroAndLeavesOutTheUnfinishedOne)
{
    std::vector<std::pair<std::size_t, std::uint64_t>> turns;
    EXPECT_TRUE(forEachRevolution(tTimeRange({file}, ".data"), layouts(), eUp::eAsReceived, [&](const tTurnAt& one) {
        turns.emplace_back(one.turn.spokes(), one.turn.lastMs());
        EXPECT_FALSE(one.navigation.targets(one.turn.lastMs()).empty());
        return true;
    }));
    ASSERT_EQ(turns.size(), 1u);
    EXPECT_EQ(turns[0].first, cTurn);
    EXPECT_EQ(turns[0].second, cStart + std::uint64_t(4095 / cSpokesPerSecond * 1000));
}

TEST(PictureTest, fullScaleIsEquallyBrightWhateverTheBits)
{
    const std::vector<unsigned char> full(16 * 4, 0xFF);
    for (const int bits : {1, 2, 4, 8, 12, 16, 24, 32})
    {
        tTurn turn;
        tSpoke spoke;
        spoke.bearingTo = 0.5;
        spoke.cellM = 1;
        spoke.cells = {full.data(), 16, static_cast<std::uint8_t>(bits), false};
        turn.add(spoke, 0, 1);
        const tPolarImage image = turn.image();
        EXPECT_EQ(std::count(image.cells.begin(), image.cells.end(), 255), 16) << bits;
    }
}
