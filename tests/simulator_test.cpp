// The simulated radar: the layout of what it sends, its picture and its sentences; and how the command line reads
// times.
#include <cmath>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "KestovaRecordings/streamcounts.h"
#include "sessions/simulate/nmea.h"
#include "sessions/simulate/simulatedradar.h"
#include "sessions/simulate/spoke.h"
#include "support/radarpackages.h"
#include "tools/shell/places.h"
#include "tools/shell/units.h"

namespace
{
using namespace session;
using tool::parseDuration;
using tool::parseMoment;

constexpr std::uint64_t cNoon = 1'715'940'000'250;  // 2024-05-17 10:00:00.250 UTC

// What a radar sends on each of these streams until `endNs`.
std::map<tReadWriteType, std::vector<std::string>> simulate(std::uint64_t endNs,
                                                            std::initializer_list<tReadWriteType> kinds)
{
    tSimulation how;
    how.serial = "A1:2";
    how.seed = 1;
    how.startMs = cNoon;
    how.endNs = endNs;
    for (const tReadWriteType kind : kinds)
        how.streams.set(kind);
    std::map<tReadWriteType, std::vector<std::string>> sent;
    tSimulatedRadar radar(how);
    for (tSimulatedDatagram datagram; radar.next(datagram);)
        if (datagram.channel == eChannel::eStream)
            sent[datagram.kind].push_back(datagram.bytes);
    return sent;
}

// Every sentence of a datagram, made again from its words.
std::string closedAgain(const std::string& datagram)
{
    std::string sentences;
    std::istringstream lines(datagram);
    for (std::string line; std::getline(lines, line);)
        sentences += nmeaSentence(line[0], line.substr(1, line.rfind('*') - 1));
    return sentences;
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

TEST(tSimulatorTest, laysASpokeOutToTheByteAndSends4096ARevolutionAt24RevolutionsAMinute)
{
    tEchoes echoes{};
    echoes[0] = 7;
    echoes[511] = 200;
    std::string bytes;
    encodeSpoke(4096 * 70'001ull + 258, cNoon, echoes, bytes);
    ASSERT_EQ(bytes.size(), 542u);
    EXPECT_EQ(bytes.substr(0, 8), std::string("\x5a\xa5\xe0\0\x02\x01\0\x10", 8));
    EXPECT_EQ(bytes.substr(8, 16), littleEndian(11'112, 4) + littleEndian(286'724'354, 4) + littleEndian(cNoon, 8));
    EXPECT_EQ(bytes.substr(24, 7), std::string("\0\0\0\0\0\0\x07", 7));
    EXPECT_EQ(static_cast<unsigned char>(bytes[541]), 200);
    auto sent = simulate(2'500'000'000, {eImageStream});
    EXPECT_EQ(sent.size(), 1u) << "nothing for a stream without address";
    const auto& spokes = sent[eImageStream];
    ASSERT_EQ(spokes.size(), 4096u);
    for (std::size_t i = 0; i < spokes.size(); ++i)
        ASSERT_EQ(spokes[i].substr(4, 2), littleEndian(i, 2));
    EXPECT_EQ(spokes[2048].substr(16, 8), littleEndian(cNoon + 1250, 8));
}

TEST(tSimulatorTest, paintsATargetWhereItsSentenceSaysItIs)
{
    const tScene scene(3);
    constexpr double cLater = 120.0;  // so that one that stands still is elsewhere
    const tMotion ship = scene.ownShip(cLater);
    for (std::size_t i = 0; i < scene.targetCount(); ++i)
    {
        const tMotion target = scene.target(i, cLater);
        const double bearing = std::atan2(target.x - ship.x, target.y - ship.y);
        const double range = std::hypot(target.x - ship.x, target.y - ship.y);
        const auto azimuth = static_cast<std::uint64_t>(std::llround(bearing / 6.283185307 * 4096.0) + 4096) % 4096;
        tEchoes echoes{};
        scene.echoes(azimuth, cLater, echoes);
        EXPECT_GT(echoes[static_cast<std::size_t>(range / 11'112.0 * 512.0)], 220) << "target " << i;
    }
}

TEST(tSimulatorTest, closesEverySentenceWithItsChecksum)
{
    EXPECT_EQ(nmeaSentence('$', "GPGLL,5300.97914,N,00259.98174,E,125926,A"),
              "$GPGLL,5300.97914,N,00259.98174,E,125926,A*28\r\n");
    const auto sent = simulate(11'000'000'000, {eArpaStream, eAisDev, eGpsDev, eDepthDev, eHeadingDev});
    EXPECT_EQ(sent.size(), 5u);
    for (const auto& [kind, sentences] : sent)
    {
        ASSERT_GT(sentences.size(), 3u) << "kind " << int(kind);
        for (const std::string& text : sentences)
            ASSERT_EQ(closedAgain(text), text);
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

TEST(tDigestTest, isTheHashOfAMessageSeededByThoseBeforeIt)
{
    const auto of = [](const std::vector<std::string>& messages) {
        recordings::tDigest digest;
        for (const std::string& message : messages)
            digest.add(message);
        return digest.text();
    };
    EXPECT_EQ(of({}), "0000000000000000");
    EXPECT_EQ(of({""}), "2d06800538d394c2");  // known values of the hash
    EXPECT_EQ(of({"abc"}), "78af5f94892f3950");
    const std::set<std::string> different{of({"abc"}), of({"ab", "c"}), of({"c", "ab"}), of({"abc", ""}),
                                          of({"", "abc"})};
    EXPECT_EQ(different.size(), 5u);
}

TEST(tUnitsTest, readsPlacesInEveryFormAndDurationsInSecondsByDefault)
{
    const auto at = [](const char* text) { return parseMoment(text).resolve(2'000'000, 4'000'000); };
    EXPECT_DOUBLE_EQ(at("0.5"), 3'000'000.0);
    EXPECT_DOUBLE_EQ(at("90s"), 2'090'000.0);
    EXPECT_DOUBLE_EQ(at("250ms"), 2'000'250.0);
    EXPECT_DOUBLE_EQ(at("00:01:30.5"), 2'090'500.0);
    EXPECT_DOUBLE_EQ(at("+90s"), 2'090'000.0);
    EXPECT_DOUBLE_EQ(at("-1:30"), 3'910'000.0);
    EXPECT_DOUBLE_EQ(at("25%"), 2'500'000.0);
    EXPECT_DOUBLE_EQ(at("1715940000250"), 1'715'940'000'250.0);
    for (const char* zoned : {"2024-05-17T10:00:00.25Z", "2024-05-17 12:00:00.250+02", "2024-05-17T06:30:00.25-03:30"})
        EXPECT_DOUBLE_EQ(at(zoned), 1'715'940'000'250.0) << zoned;
    EXPECT_EQ(parseDuration("2.5"), 2500u);
    EXPECT_EQ(parseDuration("2h"), 7'200'000u);
    EXPECT_EQ(parseDuration("01:00:00"), 3'600'000u);
    for (const char* wrong : {"", "7", "+", "-x", "101%", "nan", "1e99", "10x", "1:2:3:4", "2024-05-17",
                              "2024-05-17T10:00:00+15:00", "2024-02-30 10:00:00", "2024-05-17 10:00:0055", "soon"})
        EXPECT_THROW(parseMoment(wrong), std::invalid_argument) << wrong;
    for (const char* wrong : {"", "-3", "inf", "1e300", "5 s", "x"})
        EXPECT_THROW(parseDuration(wrong), std::invalid_argument) << wrong;
}

TEST(tPlacesTest, readsAndWritesTimesInUtc)
{
    const char* const before = std::getenv("TZ");
    const std::string zone = before != nullptr ? before : "";
    ::setenv("TZ", "XYZ-5:30", 1);
    ::tzset();
    EXPECT_EQ(tool::timeText(1'715'940'000'250), "2024-05-17 15:30:00.250");
    EXPECT_DOUBLE_EQ(parseMoment("2024-05-17 15:30:00.25").value, 1'715'940'000'250.0);
    tool::useUtc(true);
    EXPECT_EQ(tool::timeText(1'715'940'000'250), "2024-05-17 10:00:00.250");
    EXPECT_DOUBLE_EQ(parseMoment("2024-05-17 10:00:00.25").value, 1'715'940'000'250.0);
    tool::useUtc(false);
    before != nullptr ? ::setenv("TZ", zone.c_str(), 1) : ::unsetenv("TZ");
    ::tzset();
}

}  // namespace
