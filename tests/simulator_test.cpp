// The simulated radar: the layout of what it sends, its sentences, and that the seed alone decides the bytes.
#include <cmath>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tools/simulator/nmea.h"
#include "tools/simulator/simulatedradar.h"
#include "tools/simulator/spoke.h"
#include "tools/streamhistory.h"
#include "tools/streamtable.h"
#include "tools/units.h"

namespace
{
using namespace tool;

constexpr std::uint64_t cNoon = 1'715'940'000'250;  // 2024-05-17 10:00:00.250 UTC

template <typename tNumber>
tNumber numberAt(const std::string& bytes, std::size_t offset)
{
    tNumber value{};
    std::memcpy(&value, &bytes[offset], sizeof(value));  // the hosts we test on are little-endian
    return value;
}

tSimulation simulation(std::uint64_t seed, std::uint64_t endNs)
{
    tSimulation how;
    how.serial = "A1:2";
    how.seed = seed;
    how.startMs = cNoon;
    how.endNs = endNs;
    for (const tReadWriteType kind : {eImageStream, eImageState, eArpaStream, eAisDev, eGpsDev, eDepthDev, eHeadingDev})
        how.streams.set(kind);
    return how;
}

std::vector<tSimulatedDatagram> everything(const tSimulation& how)
{
    tSimulatedRadar radar(how);
    std::vector<tSimulatedDatagram> all;
    for (tSimulatedDatagram datagram; radar.next(datagram);)
        all.push_back(datagram);
    return all;
}

std::vector<std::string> ofKind(const std::vector<tSimulatedDatagram>& all, tReadWriteType kind)
{
    std::vector<std::string> found;
    for (const tSimulatedDatagram& datagram : all)
    {
        if (datagram.channel == eChannel::stream && datagram.kind == kind)
            found.push_back(datagram.bytes);
    }
    return found;
}

std::string digestOf(const std::vector<tSimulatedDatagram>& all)
{
    tDigest digest;
    for (const tSimulatedDatagram& datagram : all)
        digest.add(datagram.bytes);
    return digest.text();
}

// Worked out here a second way: every sentence in `text` ends in "*", two hex digits and CR LF that fit it.
bool checksumsHold(const std::string& text)
{
    std::size_t begin = 0;
    for (std::size_t end; (end = text.find("\r\n", begin)) != std::string::npos; begin = end + 2)
    {
        const std::size_t star = text.rfind('*', end);
        int sum = 0;
        for (std::size_t i = begin + 1; i < star; ++i)
            sum ^= text[i];
        if ((text[begin] != '$' && text[begin] != '!') || end != star + 3 ||
            std::stoi(text.substr(star + 1, 2), nullptr, 16) != sum)
            return false;
    }
    return begin == text.size() && begin > 0;
}

// `width` bits of an AIS report from bit `first` on.
std::uint64_t aisField(const std::string& armoured, std::size_t first, std::size_t width)
{
    std::uint64_t value = 0;
    for (std::size_t bit = first; bit < first + width; ++bit)
    {
        const int character = armoured[bit / 6];
        const int six = character >= 96 ? character - 56 : character - 48;
        value = value << 1 | (static_cast<unsigned int>(six) >> (5 - bit % 6) & 1u);
    }
    return value;
}

TEST(tSimulatorTest, laysASpokeOutToTheByte)
{
    tEchoes echoes{};
    echoes[0] = 7;
    echoes[511] = 200;
    std::string bytes;
    encodeSpoke(4096 * 70'001ull + 258, cNoon, echoes, bytes);
    ASSERT_EQ(bytes.size(), 542u);
    EXPECT_EQ(bytes.substr(0, 4), "\x5a\xa5\xe0" + std::string(1, '\0'));
    EXPECT_EQ(bytes.substr(4, 4), std::string("\x02\x01\x00\x10", 4));
    EXPECT_EQ(numberAt<std::uint32_t>(bytes, 8), 11'112u);
    EXPECT_EQ(numberAt<std::uint32_t>(bytes, 12), 286'724'354u);
    EXPECT_EQ(numberAt<std::uint64_t>(bytes, 16), cNoon);
    EXPECT_EQ(bytes.substr(24, 6), std::string(6, '\0'));
    EXPECT_EQ(bytes[30], 7);
    EXPECT_EQ(static_cast<unsigned char>(bytes[541]), 200);
}

TEST(tSimulatorTest, sends4096SpokesARevolutionAt24RevolutionsAMinute)
{
    const auto spokes = ofKind(everything(simulation(1, 2'500'000'000)), eImageStream);
    ASSERT_EQ(spokes.size(), 4096u);
    for (std::size_t i = 0; i < spokes.size(); ++i)
        ASSERT_EQ(numberAt<std::uint16_t>(spokes[i], 4), i);
    EXPECT_EQ(numberAt<std::uint64_t>(spokes[2048], 16), cNoon + 1250);
}

TEST(tSimulatorTest, givesTheSameBytesForTheSameSeedOnly)
{
    const auto first = everything(simulation(7, 500'000'000));
    EXPECT_EQ(digestOf(first), digestOf(everything(simulation(7, 500'000'000))));
    EXPECT_NE(digestOf(first), digestOf(everything(simulation(8, 500'000'000))));
}

TEST(tSimulatorTest, movesTheCoastPastTheShip)
{
    const tScene scene(1);
    constexpr std::uint64_t east = 1024;  // the coast lies to starboard
    tEchoes now{};
    tEchoes later{};
    scene.echoes(east, 0.0, now);
    scene.echoes(east, 120.0, later);
    const auto shore = [](const tEchoes& echoes) {
        std::size_t i = 120;  // the sea is loud near the ship
        while (i < cEchoSamples && echoes[i] < 100)
            ++i;
        return i;
    };
    EXPECT_LT(shore(now), cEchoSamples);
    EXPECT_LT(shore(later), cEchoSamples);
    EXPECT_NE(shore(now), shore(later));
}

TEST(tSimulatorTest, paintsATargetWhereItsSentenceSaysItIs)
{
    const tScene scene(3);
    const tMotion ship = scene.ownShip(5.0);
    for (std::size_t i = 0; i < scene.targetCount(); ++i)
    {
        const tMotion target = scene.target(i, 5.0);
        const double bearing = std::atan2(target.x - ship.x, target.y - ship.y);
        const double range = std::hypot(target.x - ship.x, target.y - ship.y);
        const auto azimuth = static_cast<std::uint64_t>(std::llround(bearing / 6.283185307 * 4096.0) + 4096) % 4096;
        tEchoes echoes{};
        scene.echoes(azimuth, 5.0, echoes);
        EXPECT_GT(echoes[static_cast<std::size_t>(range / 11'112.0 * 512.0)], 220) << "target " << i;
    }
}

TEST(tSimulatorTest, closesEverySentenceWithItsChecksum)
{
    EXPECT_EQ(nmeaSentence('$', "GPGLL,5300.97914,N,00259.98174,E,125926,A"),
              "$GPGLL,5300.97914,N,00259.98174,E,125926,A*28\r\n");
    const auto all = everything(simulation(1, 11'000'000'000));
    for (const tReadWriteType kind : {eArpaStream, eAisDev, eGpsDev, eDepthDev, eHeadingDev})
    {
        const auto sentences = ofKind(all, kind);
        ASSERT_GT(sentences.size(), 3u) << "kind " << int(kind);
        for (const std::string& text : sentences)
            ASSERT_TRUE(checksumsHold(text)) << text;
    }
}

TEST(tSimulatorTest, writesPositionsAsReceiversDo)
{
    const tMotion ship{0.0, 0.0, 6.2, 0.0, 0.0};
    const std::string expected = "$GPRMC,100000.25,A,5406.0000,N,01048.0000,E,12.1,0.0,170524,,,A*";
    EXPECT_EQ(positionSentence(ship, cNoon).substr(0, expected.size()), expected);
    EXPECT_EQ(fixSentence(ship, cNoon).substr(0, 43), "$GPGGA,100000.25,5406.0000,N,01048.0000,E,1");
    EXPECT_EQ(headingSentence(359.96).substr(0, 10), "$HEHDT,0.0");
    EXPECT_EQ(depthSentence(3.048).substr(0, 23), "$SDDBT,10.0,f,3.0,M,1.7");
}

TEST(tSimulatorTest, packsAisPositionsInSixBits)
{
    const tMotion vessel{-1000.0, 2000.0, 5.0, 123.4, 124.0};
    const std::string text = aisPositionSentence(211'234'567, vessel, cNoon);
    ASSERT_EQ(text.substr(0, 14), "!AIVDM,1,1,,A,");
    const std::string report = text.substr(14, 28);
    EXPECT_EQ(text.substr(42, 3), ",0*");
    EXPECT_EQ(aisField(report, 0, 6), 1u);
    EXPECT_EQ(aisField(report, 8, 30), 211'234'567u);
    EXPECT_EQ(aisField(report, 50, 10), 97u);  // 9.7 knots
    EXPECT_NEAR(static_cast<double>(aisField(report, 61, 28)) / 600'000.0, 10.80 - 1000.0 / 111'320.0 / 0.58637, 1e-4);
    EXPECT_NEAR(static_cast<double>(aisField(report, 89, 27)) / 600'000.0, 54.10 + 2000.0 / 111'320.0, 1e-4);
    EXPECT_EQ(aisField(report, 116, 12), 1234u);
    EXPECT_EQ(aisField(report, 128, 9), 124u);
}

TEST(tSimulatorTest, sendsNothingForAStreamWithoutAddress)
{
    tSimulation how = simulation(1, 3'000'000'000);
    how.streams.reset(eImageStream);
    const auto all = everything(how);
    EXPECT_TRUE(ofKind(all, eImageStream).empty());
    EXPECT_EQ(ofKind(all, eHeadingDev).size(), 30u);
}

TEST(tDigestTest, tellsWhereOneMessageEndsAndTheNextBegins)
{
    const auto digest = [](const std::vector<std::string>& messages) {
        tDigest sum;
        for (const std::string& message : messages)
            sum.add(message);
        return sum.text();
    };
    EXPECT_EQ(digest({}), "cbf29ce484222325");
    EXPECT_EQ(digest({"ab", "c"}), digest({"ab", "c"}));
    EXPECT_NE(digest({"ab", "c"}), digest({"a", "bc"}));
    EXPECT_NE(digest({"ab", "c"}), digest({"c", "ab"}));
    EXPECT_NE(digest({"ab"}), digest({"ab", ""}));
}

TEST(tStreamHistoryTest, keepsOnlySilencesThatStandOut)
{
    tStreamHistory steady;
    tStreamHistory broken;
    for (std::uint64_t t = 1'000'000; t < 1'100'000; t += 5000)
    {
        steady.add(t, "x", 2000, false);
        broken.add(t < 1'050'000 ? t : t + 60'000, "x", 2000, false);
    }
    EXPECT_TRUE(steady.gaps().empty());
    ASSERT_EQ(broken.gaps().size(), 1u);
    EXPECT_EQ(broken.gaps()[0].fromMs, 1'045'000u);
    EXPECT_EQ(broken.gaps()[0].length(), 65'000u);
}

TEST(tUnitsTest, readsPlacesInEveryForm)
{
    const auto at = [](const char* text) { return parseMoment(text).resolve(2'000'000, 4'000'000); };
    EXPECT_DOUBLE_EQ(at("0.5"), 3'000'000.0);
    EXPECT_DOUBLE_EQ(at("90s"), 2'090'000.0);
    EXPECT_DOUBLE_EQ(at("250ms"), 2'000'250.0);
    EXPECT_DOUBLE_EQ(at("00:01:30.5"), 2'090'500.0);
    EXPECT_DOUBLE_EQ(at("1715940000250"), 1'715'940'000'250.0);
    for (const char* wrong : {"", "7", "-1", "nan", "1e99", "10x", "1:2:3:4", "2024-05-17", "soon"})
        EXPECT_THROW(parseMoment(wrong), std::invalid_argument) << wrong;
}

TEST(tUnitsTest, readsDurationsInSecondsUnlessToldOtherwise)
{
    EXPECT_EQ(parseDuration("2.5"), 2500u);
    EXPECT_EQ(parseDuration("2h"), 7'200'000u);
    EXPECT_EQ(parseDuration("01:00:00"), 3'600'000u);
    for (const char* wrong : {"", "-3", "inf", "1e300", "5 s", "x"})
        EXPECT_THROW(parseDuration(wrong), std::invalid_argument) << wrong;
}
}  // namespace
