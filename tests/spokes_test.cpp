#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <numeric>

#include "KestovaRecordings/cat240.h"
#include "KestovaRecordings/layoutguess.h"
#include "KestovaRecordings/layoutspokes.h"
#include "KestovaRecordings/spokereader.h"
#include "KestovaRecordings/wireloss.h"
#include "KestovaUtils/internal/radardirectory.h"
#include "sessions/simulate/scene.h"
#include "sessions/simulate/spoke.h"

using namespace recordings;
using testing::HasSubstr;
using utils::tSpokeLayout;

namespace
{
constexpr char cSimulator[] = R"({"match": {"0": "5aa5e000"}, "azimuth": {"at": 4, "width": 2, "per_turn": 4096},
    "range": {"at": 8, "width": 4, "unit": "m"}, "sequence": {"at": 12, "width": 4},
    "time": {"at": 16, "width": 8, "unit": "ms"}, "cells": {"at": 30, "count": 512, "bits": 8},
    "order": "little", "reference": "bow"})";

std::string refusalOf(const std::string& text)
{
    std::vector<tSpokeLayout> layouts;
    std::string error;
    return utils::parseSpokeLayouts(text, layouts, error) ? "accepted" : error;
}

std::vector<tSpokeLayout> layoutsOf(const std::string& text)
{
    std::vector<tSpokeLayout> layouts;
    std::string error;
    EXPECT_TRUE(utils::parseSpokeLayouts(text, layouts, error)) << error;
    return layouts;
}

std::string bytes(std::initializer_list<int> values)
{
    std::string text;
    for (const int value : values)
        text.push_back(static_cast<char>(value));
    return text;
}

std::vector<std::uint32_t> valuesOf(const tCells& cells)
{
    std::vector<std::uint32_t> values;
    for (std::size_t i = 0; i < cells.count; ++i)
        values.push_back(cells.at(i));
    return values;
}

struct tSeen final : iSpokeSink
{
    void onSpoke(const tSpoke& spoke, const tMessagePlace& place) override
    {
        spokes.push_back(spoke);
        cells.push_back(valuesOf(spoke.cells));
        endedBy.push_back(place.number);
    }
    void onSequence(std::uint64_t number, unsigned bits) override { loss.add(number, bits); }
    void onSummary(std::string_view text) override
    {
        loss.addUnnumbered();
        summaries.emplace_back(text);
    }
    void onCompressed() override { ++compressed; }

    std::vector<tSpoke> spokes;
    std::vector<std::vector<std::uint32_t>> cells;
    std::vector<std::uint64_t> endedBy;
    std::vector<std::string> summaries;
    int compressed = 0;
    tWireLoss loss;
};

tCat240Video videoOf(const std::string& cells, std::uint8_t bits, std::uint16_t azimuth)
{
    tCat240Video video;
    video.startAzimuth = azimuth;
    video.endAzimuth = static_cast<std::uint16_t>(azimuth + 16);
    video.cellM = 10;
    video.cells = {reinterpret_cast<const unsigned char*>(cells.data()),
                   static_cast<std::uint32_t>(cells.size() * 8 / bits), bits, true};
    return video;
}

std::string datagramOf(const tCat240Video& video)
{
    std::string datagram;
    EXPECT_TRUE(appendCat240(video, datagram));
    return datagram;
}
}  // namespace

TEST(SpokeLayoutTest, ReadsTheSimulatorsSpokes)
{
    session::tEchoes echoes{};
    std::iota(echoes.begin(), echoes.end(), 0);
    std::string message;
    session::encodeSpoke(4096 * 3 + 4095, 1'700'000'000'123, echoes, message);
    const tSpokeLayout layout = layoutsOf(cSimulator)[0];
    ASSERT_TRUE(matches(layout, message));
    const auto spoke = readSpoke(layout, message);
    ASSERT_TRUE(spoke);
    EXPECT_DOUBLE_EQ(spoke->bearingFrom, 4095.0 / 4096);
    EXPECT_DOUBLE_EQ(spoke->bearingTo, 0);
    EXPECT_EQ(spoke->sequence, 4096u * 3 + 4095);
    EXPECT_EQ(spoke->timeMs, 1'700'000'000'123u);
    EXPECT_DOUBLE_EQ(spoke->cellM * 512, session::cRangeMetres);
    EXPECT_EQ(spoke->reference, utils::eReferenceBow);
    ASSERT_EQ(spoke->cells.count, 512u);
    EXPECT_EQ(spoke->cells.at(300), 300u % 256);
    message[1] = 0;
    EXPECT_FALSE(matches(layout, message));
}

// 12-bit azimuth in the high bits of a big-endian word, 2,048 spokes a turn, 4-bit cells to the end of the message.
TEST(SpokeLayoutTest, ReadsARadarThatPacksItsNumbers)
{
    const auto layouts = layoutsOf(R"({"azimuth": {"at": 0, "width": 2, "mask": 65520, "shift": 4, "per_turn": 2048},
        "range": 1000, "cells": {"at": 3, "count": "rest", "bits": 4}, "order": "big", "reference": "north"})");
    const std::string message = bytes({0x12, 0x3F, 0, 0xAB, 0xC0});  // the spoke views it
    const auto spoke = readSpoke(layouts[0], message);
    ASSERT_TRUE(spoke);
    EXPECT_DOUBLE_EQ(spoke->bearingFrom, 0x123 / 2048.0);
    EXPECT_THAT(valuesOf(spoke->cells), testing::ElementsAre(0xA, 0xB, 0xC, 0));
    EXPECT_DOUBLE_EQ(spoke->cellM, 250);
    EXPECT_FALSE(readSpoke(layouts[0], bytes({0x80, 0x0F, 0, 0xAB}))) << "the azimuth is beyond the turn";
    EXPECT_FALSE(readSpoke(layouts[0], bytes({0x12, 0x3F, 0}))) << "there are no cells";
}

TEST(SpokeLayoutTest, CellsOfEveryWidth)
{
    const std::string packed = bytes({0x1B, 0x5A, 0xF0, 0x12, 0x34, 0x56});
    const auto cells = [&](std::uint8_t bits, bool big) {
        return valuesOf({reinterpret_cast<const unsigned char*>(packed.data()),
                         static_cast<std::uint32_t>(packed.size() * 8 / bits), bits, big});
    };
    EXPECT_EQ(cells(2, false)[3], 3u);
    EXPECT_EQ(cells(12, false), (std::vector<std::uint32_t>{0x1B5, 0xAF0, 0x123, 0x456}));
    EXPECT_EQ(cells(16, false), (std::vector<std::uint32_t>{0x5A1B, 0x12F0, 0x5634}));
    EXPECT_EQ(cells(24, true), (std::vector<std::uint32_t>{0x1B5AF0, 0x123456}));
    unsigned char scaled[48];
    tCells{reinterpret_cast<const unsigned char*>(packed.data()), 48, 1, false}.toBytes(scaled);
    EXPECT_EQ(scaled[3], 255);
    EXPECT_EQ(scaled[0], 0);
}

TEST(SpokeLayoutTest, RefusesWithTheKeyAndTheReason)
{
    const std::string cells = R"("cells": {"at": 1, "count": 1, "bits": 8})";
    const std::string azimuth = R"("azimuth": {"at": 0, "width": 1, "per_turn": 256})";
    EXPECT_THAT(refusalOf("{" + azimuth + "}"), HasSubstr("spoke: cells is missing"));
    EXPECT_THAT(refusalOf("{" + cells + "," + azimuth + R"(, "colour": 1})"), HasSubstr(R"(unknown key "colour")"));
    EXPECT_THAT(refusalOf("{" + cells + "," + azimuth + R"(, "reference": "west"})"), HasSubstr("reference: none of"));
    EXPECT_THAT(refusalOf("{" + cells + R"(, "azimuth": {"at": 0, "width": 9, "per_turn": 4096}})"),
                HasSubstr("azimuth: width: not a whole number from 1 to 8"));
    EXPECT_THAT(refusalOf("{" + azimuth + R"(, "cells": {"at": 1, "count": 0, "bits": 8}})"),
                HasSubstr("cells: count"));
    EXPECT_THAT(refusalOf("{" + azimuth + R"(, "cells": {"at": 1, "count": 9, "bits": 7}})"),
                HasSubstr("bits is none"));
    EXPECT_THAT(refusalOf("{" + cells + "," + azimuth + R"(, "match": {"4294967296": "5a"}})"),
                HasSubstr("is no offset"));
    EXPECT_THAT(refusalOf(R"("cat062")"), HasSubstr("no layout and not"));
    EXPECT_THAT(refusalOf(R"({"source": "cat240", "reference": "north"})"), "accepted");
    std::vector<utils::tRadarEntry> radars;
    std::string error;
    EXPECT_FALSE(utils::parseRadarDirectory(
        R"({"radars": [{"serial": "S", "id": 0, "streams": {}, "spoke": {"cells": 1, "azimuth": 2}}]})", radars,
        error));
    EXPECT_THAT(error, HasSubstr("radar 1: spoke: azimuth: "));
}

TEST(Cat240Test, TheUsualSpokeByteForByte)
{
    const std::string cells = bytes({1, 2, 3, 4, 5});
    tCat240Video video = videoOf(cells, 8, 0x1234);
    video.sac = 7;
    video.sic = 8;
    video.sequence = 0x01020304;
    video.startCell = 6;
    video.timeOfDay = 0x0A0B0C;
    video.cellM = 149'896.229e-6;  // 1 ns
    EXPECT_EQ(datagramOf(video), bytes({0xF0, 0, 42, 0xE7, 0xC8, 7, 8,    2,    1,    2, 3,    4,    0x12, 0x34, 0x12,
                                        0x44, 0, 0,  0,    6,    0, 0x0F, 0x42, 0x40, 0, 4,    0,    5,    0,    0,
                                        5,    2, 1,  2,    3,    4, 5,    0,    0,    0, 0x0A, 0x0B, 0x0C})
                                     .replace(1, 2, bytes({0, 43})));
}

TEST(Cat240Test, WhatIsWrittenIsReadAgain)
{
    for (const std::uint8_t bits : std::initializer_list<std::uint8_t>{1, 2, 4, 8, 12, 16, 24, 32})
    {
        for (const std::size_t size : {12u, 3000u, 48'000u})
        {
            std::string cells(size, '\0');
            for (std::size_t i = 0; i < size; ++i)
                cells[i] = static_cast<char>(i * 7 + bits);
            tSeen seen;
            tSpokeReader reader(layoutsOf(R"("cat240")"));
            tCat240Video video = videoOf(cells, bits, 100);
            video.cellM = size == 12 ? 5000 : 21.7;  // beyond what femtoseconds can say
            if (size == 48'000 && (bits == 12 || bits == 24))
                continue;  // too wide when widened
            reader.read(datagramOf(video), {}, seen);
            reader.finish(seen);
            ASSERT_EQ(seen.spokes.size(), 1u) << int(bits) << " " << size;
            EXPECT_NEAR(seen.spokes[0].cellM, video.cellM, video.cellM * 3e-5);
            const unsigned more = bits == 12 ? 4 : bits == 24 ? 8 : 0;
            const auto wanted = valuesOf(video.cells);
            ASSERT_EQ(seen.cells[0].size(), wanted.size());
            for (std::size_t i = 0; i < wanted.size(); ++i)
                ASSERT_EQ(seen.cells[0][i] >> more, wanted[i]) << int(bits) << " cell " << i;
        }
    }
}

TEST(Cat240Test, PutsSplitSpokesTogetherAndKeepsTheOthersApart)
{
    const std::string first = bytes({0x12, 0x34}), second = bytes({0x56});
    tCat240Video part = videoOf(first, 4, 100), rest = videoOf(second, 4, 100), next = videoOf(second, 4, 116);
    rest.startCell = 4;
    rest.sequence = 1;
    next.sequence = 2;
    part.cells.count = 3;  // the next part goes on in mid-byte
    rest.startCell = 3;
    tSeen seen;
    tSpokeReader reader(layoutsOf(R"("cat240")"));
    reader.read(datagramOf(part), {0, 10}, seen);
    reader.read(datagramOf(rest), {0, 11}, seen);
    EXPECT_TRUE(seen.spokes.empty());
    reader.read(datagramOf(next), {0, 12}, seen);
    ASSERT_EQ(seen.spokes.size(), 1u);
    EXPECT_THAT(seen.cells[0], testing::ElementsAre(1, 2, 3, 5, 6));
    EXPECT_EQ(seen.endedBy[0], 11u);
    reader.finish(seen);
    EXPECT_EQ(seen.spokes.size(), 2u);
    EXPECT_EQ(seen.loss.missing(), 0u);
}

TEST(Cat240Test, KeepsTheSplitSpokesOfTwoSourcesApart)
{
    const std::string cells = bytes({1, 2, 3, 4});
    tSeen seen;
    tSpokeReader reader(layoutsOf(R"("cat240")"));
    std::uint64_t number = 0;
    for (const std::uint32_t startCell : {0u, 4u})
    {
        for (std::uint8_t source = 1; source <= 2; ++source)
        {
            tCat240Video video = videoOf(cells, 8, 100);
            video.sic = source;
            video.startCell = startCell;
            video.sequence = startCell == 0 ? 0 : 1;
            reader.read(datagramOf(video), {0, number++}, seen);
        }
    }
    ASSERT_TRUE(seen.spokes.empty());
    ASSERT_NE(reader.waiting(), nullptr);
    EXPECT_EQ(reader.waiting()->number, 2u);
    reader.finish(seen);
    EXPECT_EQ(seen.cells, std::vector(2, std::vector<std::uint32_t>{1, 2, 3, 4, 1, 2, 3, 4}));
}

TEST(Cat240Test, ReadsADatagramOnceThatTwoLayoutsTake)
{
    const std::string cells = bytes({1, 2, 3, 4});
    tSeen seen;
    tSpokeReader reader(layoutsOf(R"(["cat240", "cat240"])"));
    reader.read(datagramOf(videoOf(cells, 8, 100)) + bytes({0, 0}), {}, seen);  // padded
    reader.finish(seen);
    EXPECT_EQ(seen.spokes.size(), 1u);
}

TEST(Cat240Test, SkipsWhatItDoesNotNeedAndReportsCompressedVideo)
{
    const std::string cells = bytes({1, 2, 3, 4});
    std::string record = datagramOf(videoOf(cells, 8, 5)).substr(3);
    record[1] = static_cast<char>(record[1] | 0x06);                 // RE and SP follow
    record += bytes({2, 99, 1});                                     // of 2 and 1 bytes
    std::string summary = bytes({0xD0, 1, 2, 1, 3, 'a', 'b', 'c'});  // 010, 000, 030
    std::string block = bytes({0xF0, 0, 0}) + summary + record;
    block[2] = static_cast<char>(block.size());
    std::string compressed = datagramOf(videoOf(cells, 8, 6));
    compressed[3 + 21] = static_cast<char>(0x80);
    tSeen seen;
    tSpokeReader reader(layoutsOf(R"("cat240")"));
    reader.read(bytes({48, 0, 4, 0}) + block + compressed, {}, seen);  // after a block of another category
    EXPECT_EQ(seen.summaries, std::vector<std::string>{"abc"});
    EXPECT_EQ(seen.spokes.size(), 1u);
    EXPECT_EQ(seen.compressed, 1);
}

TEST(Cat240Test, PassesOverHostileBytes)
{
    const std::string cells = bytes({1, 2, 3, 4}), good = datagramOf(videoOf(cells, 8, 5));
    const auto changed = [&](std::size_t at, std::initializer_list<int> to) {
        return std::string(good).replace(at, to.size(), bytes(to));
    };
    const struct
    {
        const char* what;
        std::string datagram;
        bool isWhole;
        std::size_t spokes;
    } cases[] = {
        {"nothing", "", false, 0},
        {"LEN 0", bytes({0xF0, 0, 0}) + good, false, 0},
        {"LEN 65,535", good + bytes({0xF0, 0xFF, 0xFF}), false, 1},
        {"four bytes", bytes({0xF0, 0, 4, 0}) + good, true, 1},
        {"an FSPEC that goes on", bytes({0xF0, 0, 4, 0xFF}) + good, false, 0},
        {"an FSPEC without end", bytes({0xF0, 0x0F, 0xFF}) + std::string(0x0FFC, '\x01'), false, 0},
        {"an item that there is not", changed(4, {0xC9, 0x80}), false, 0},
        {"REP beyond the datagram", changed(31, {255}), false, 0},
        {"no blocks", changed(31, {0}), false, 0},
        {"no cells", changed(26, {0, 0, 0, 0, 0}), true, 0},
        {"more cells than octets", changed(28, {0xFF, 0xFF, 0xFF}), true, 0},
        {"more octets than the block", changed(26, {0xFF, 0xFF}), true, 0},
        {"resolution 0", changed(25, {0}), true, 0},
        {"resolution 7", changed(25, {7}), true, 0},
        {"another type", changed(7, {3}), true, 0},
    };
    for (const auto& one : cases)
    {
        struct : iCat240Sink
        {
            void onVideo(const tCat240Video&) override {}
            void onSummary(const tCat240Summary&) override {}
        } nothing;
        EXPECT_EQ(readCat240(one.datagram, nothing), one.isWhole) << one.what;
        tSeen seen;
        tSpokeReader reader(layoutsOf(R"("cat240")"));
        reader.read(one.datagram, {}, seen);
        reader.finish(seen);
        EXPECT_EQ(seen.spokes.size(), one.spokes) << one.what;
    }
    for (std::size_t size = 0; size < good.size(); ++size)
    {
        tSeen seen;
        tSpokeReader reader(layoutsOf(R"("cat240")"));
        reader.read(good.substr(0, size), {}, seen);
        reader.finish(seen);
        EXPECT_TRUE(seen.spokes.empty()) << "the first " << size << " bytes";
    }
}

TEST(WireLossTest, CountsWhatNeverCame)
{
    const auto missing = [](std::initializer_list<std::uint64_t> numbers, unsigned bits) {
        tWireLoss loss;
        for (const std::uint64_t number : numbers)
            loss.add(number, bits);
        return loss.missing();
    };
    EXPECT_EQ(missing({5, 6, 9, 10}, 32), 2u);
    EXPECT_EQ(missing({254, 255, 0, 1}, 8), 0u) << "a wrap";
    EXPECT_EQ(missing({250, 3}, 8), 8u) << "a loss over the wrap";
    EXPECT_EQ(missing({100'000, 0, 1}, 32), 0u) << "a restart";
    EXPECT_EQ(missing({4'000'000'000, 0, 1}, 32), 0u) << "a restart from far up";
    EXPECT_EQ(missing({65'530, 4}, 16), 9u) << "a loss over the wrap";
    EXPECT_EQ(missing({1, 3, 2, 4}, 16), 0u) << "exchanged";
    EXPECT_EQ(missing({254, 1, 255, 0, 2}, 8), 0u) << "late over the wrap";
    EXPECT_EQ(missing({1, 2, 2, 1, 3}, 16), 0u) << "repeated";
    EXPECT_EQ(missing({1, 1'000'000}, 32), 999'998u);
    tWireLoss loss;
    loss.add(1, 32);
    loss.addUnnumbered();
    loss.add(3, 32);
    EXPECT_EQ(loss.missing(), 0u) << "a summary took the number";
    tWireLoss late;
    late.add(1, 32);
    late.add(3, 32);
    late.addUnnumbered();
    late.add(2, 32);
    late.add(5, 32);
    EXPECT_EQ(late.missing(), 0u) << "a late one takes no number of a summary";
}

TEST(LayoutGuessTest, FindsAllOfTheSimulatorThatIsInItsData)
{
    const session::tScene scene(1);
    session::tEchoes echoes;
    tLayoutGuesser guesser;
    std::string message;
    for (std::uint64_t n = 3000; n < 8500; ++n)
    {
        const std::uint64_t timeMs = 1'700'000'000'000 + n * 10 / 16;
        scene.echoes(n, static_cast<double>(n) / 1638.4, echoes);
        session::encodeSpoke(n + 70'000, timeMs, echoes, message);
        if (n % 500 != 7)  // it never came
            guesser.add(message, timeMs + 3);
    }
    std::string reason;
    const auto guess = guesser.guess(reason);
    ASSERT_TRUE(guess) << reason;
    auto wanted = nlohmann::json::parse(cSimulator);
    wanted.erase("range");
    wanted.erase("reference");
    EXPECT_EQ(nlohmann::json::parse(guess->spoke), wanted);
    EXPECT_THAT(guess->unsure, testing::IsSupersetOf({"range", "reference", "per_turn"}));
    EXPECT_THAT(guess->unsure, testing::Not(testing::Contains("azimuth")));
    EXPECT_THAT(guess->unsure, testing::Not(testing::Contains("cells")));
}

TEST(LayoutGuessTest, SaysWhichNumbersItCannotTellApart)
{
    tLayoutGuesser guesser, tooFew;
    std::string reason;
    for (int i = 0; i < 1000; ++i)
    {
        const int azimuth = i % 360, other = (i + 100) % 360;
        const std::string message =
            bytes({azimuth >> 8, azimuth & 255, other >> 8, other & 255, i * i, i * 7, i ^ 5, i * 3});
        guesser.add(message, 1'700'000'000'000);
        if (i < 200)
            tooFew.add(message, 1'700'000'000'000);
    }
    const auto guess = guesser.guess(reason);
    ASSERT_TRUE(guess) << reason;
    const auto spoke = nlohmann::json::parse(guess->spoke);
    EXPECT_EQ(spoke["azimuth"], (nlohmann::json{{"at", 0}, {"width", 2}, {"per_turn", 360}}));
    EXPECT_EQ(spoke["order"], "big");
    EXPECT_THAT(guess->unsure, testing::Contains("azimuth"));
    const auto why =
        std::find_if(guess->why.begin(), guess->why.end(), [](auto& one) { return one.first == "azimuth"; });
    EXPECT_THAT(why->second, HasSubstr("the 2 bytes at 2 go around by 360 as well: these cannot be told apart"));
    EXPECT_FALSE(tooFew.guess(reason));
    EXPECT_THAT(reason, HasSubstr("a whole turn and more is wanted"));
}
