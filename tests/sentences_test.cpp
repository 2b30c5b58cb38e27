#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "KestovaRecordings/internal/groupsentences.h"
#include "KestovaRecordings/sentencereader.h"
#include "sessions/simulate/nmea.h"

using namespace recordings;

namespace
{
constexpr std::uint64_t cRecorded = 1'790'000'000'000;  // 2026-09-21 14:13:20 UTC

struct tSeen final : iSentenceSink
{
    void onSentence(const tSentence& sentence) override { all.push_back(sentence); }
    std::vector<tSentence> all;
};

std::vector<tSentence> read(const std::string& text, std::uint64_t timeMs = cRecorded)
{
    tSeen seen;
    tSentenceReader().read(text, timeMs, seen);
    return seen.all;
}

tSentence one(const std::string& body)
{
    const auto all = read(session::nmeaSentence(body.substr(0, 2) == "AI" ? '!' : '$', body));
    EXPECT_EQ(all.size(), 1u) << body;
    return all.empty() ? tSentence() : all[0];
}
}  // namespace

TEST(SentencesTest, PositionAndTime)
{
    const tSentence rmc = one("GPRMC,235959.50,A,4807.038,N,01131.000,W,022.4,084.4,230394,003.1,W");
    EXPECT_TRUE(rmc.valid);
    EXPECT_EQ(rmc.talker, "GP");
    EXPECT_NEAR(rmc.latitudeDeg.value(), 48.1173, 1e-6);
    EXPECT_NEAR(rmc.longitudeDeg.value(), -11.516667, 1e-6);
    EXPECT_DOUBLE_EQ(rmc.speedKn.value(), 22.4);
    EXPECT_DOUBLE_EQ(rmc.courseDeg.value(), 84.4);
    EXPECT_EQ(rmc.utcMs, 764'467'199'500u);
    EXPECT_TRUE(one("GPRMC,120000,A,4807.038,N,01131.000,E,1,2,,,").utcMs) << "of the recording's date";
    EXPECT_FALSE(one("GPRMC,120000,A,4807.038,N,01131.000,E,-5,2,230394,,").speedKn);
    const tSentence invalid = one("GPRMC,120000,V,4807.038,N,01131.000,E,,,230394,,");
    EXPECT_FALSE(invalid.latitudeDeg || invalid.speedKn);
    EXPECT_TRUE(invalid.utcMs);
    EXPECT_FALSE(one("GPGLL,4807.038,N,01131.000,E,120000,V").latitudeDeg);
    EXPECT_FALSE(one("GPGGA,120000,4807.038,N,01131.000,E,0,08,0.9,1,M,1,M,,").latitudeDeg) << "no fix";
    const tSentence gga = one("GPGGA,141321,4807.038,S,01131.000,E,1,08,0.9,1,M,1,M,,");
    EXPECT_LT(gga.latitudeDeg.value(), 0);
    EXPECT_EQ(gga.utcMs, cRecorded + 1000) << "the recording's date";
    EXPECT_EQ(one("GPZDA,000000.00,04,07,2002,00,00").utcMs, 1'025'740'800'000u);
    EXPECT_FALSE(one("GPZDA,000000.00,31,02,2002,00,00").utcMs) << "no such day";
    EXPECT_FALSE(one("GPGLL,9107.038,N,01131.000,E,120000,A").latitudeDeg);
    EXPECT_FALSE(one("GPGLL,4860.038,N,01131.000,E,120000,A").latitudeDeg);
}

TEST(SentencesTest, TimesOfDayOverMidnight)
{
    const std::uint64_t midnight = 1'789'948'800'000;
    EXPECT_EQ(read(session::nmeaSentence('$', "GPGGA,235959,,,,,0"), midnight + 1000)[0].utcMs, midnight - 1000);
    EXPECT_EQ(read(session::nmeaSentence('$', "GPGGA,000001,,,,,0"), midnight - 1000)[0].utcMs, midnight + 1000);
}

TEST(SentencesTest, HeadingSpeedAndDepth)
{
    EXPECT_DOUBLE_EQ(one("HEHDT,274.5,T").headingDeg.value(), 274.5);
    EXPECT_DOUBLE_EQ(one("GPTHS,77.1,A").headingDeg.value(), 77.1);
    EXPECT_FALSE(one("GPTHS,77.1,V").headingDeg);
    EXPECT_FALSE(one("HEHDT,361,T").headingDeg);
    const tSentence vtg = one("GPVTG,054.7,T,034.4,M,005.5,N,010.2,K,A");
    EXPECT_DOUBLE_EQ(vtg.courseDeg.value(), 54.7);
    EXPECT_DOUBLE_EQ(vtg.speedKn.value(), 5.5);
    EXPECT_FALSE(one("GPVTG,054.7,T,034.4,M,005.5,N,010.2,K,N").speedKn);
    EXPECT_DOUBLE_EQ(one("SDDPT,10.5,-2.5,100").depthM.value(), 8.0);
    EXPECT_DOUBLE_EQ(one("SDDBT,10.0,f,3.1,M,1.7,F").depthM.value(), 3.1);
    EXPECT_DOUBLE_EQ(one("SDDBT,10.0,f,,M,,F").depthM.value(), 3.048);
}

TEST(SentencesTest, TrackedTargets)
{
    const tSentence ttm = one("RATTM,07,1.852,045.0,R,18.52,090.0,T,0.1,-3.2,K,ALFA,T,,141320,A");
    EXPECT_EQ(ttm.target, 7u);
    EXPECT_DOUBLE_EQ(ttm.distanceNm.value(), 1.0);
    EXPECT_DOUBLE_EQ(ttm.speedKn.value(), 10.0);
    EXPECT_EQ(ttm.bearingReference, utils::eReferenceBow);
    EXPECT_EQ(ttm.targetStatus, 'T');
    const tSentence tll = one("RATLL,12,5400.000,N,01030.000,E,BUOY,141320,Q,");
    EXPECT_EQ(tll.target, 12u);
    EXPECT_DOUBLE_EQ(tll.longitudeDeg.value(), 10.5);
    EXPECT_EQ(tll.targetStatus, 'Q');
}

TEST(SentencesTest, AisReportsAndFragments)
{
    const tSentence report = read("!AIVDM,1,1,,B,177KQJ5000G?tO`K>RA1wUbN0TKH,0*5C\r\n")[0];
    EXPECT_EQ(report.mmsi, 477'553'000u);
    EXPECT_EQ(report.aisType, 1u);
    EXPECT_NEAR(report.latitudeDeg.value(), 47.582833, 1e-6);
    EXPECT_NEAR(report.longitudeDeg.value(), -122.345833, 1e-6);
    EXPECT_EQ(report.headingDeg, 181);
    EXPECT_EQ(report.courseDeg, 51);
    const std::string first = "!AIVDM,2,1,3,B,55P5TL01VIaAL@7WKO@mBplU@<PDhh000000001S;AJ::4A80?4i@E53,0*3E\r\n";
    const std::string last = "!AIVDM,2,2,3,B,1@0000000000000,2*55\r\n";
    const auto whole = read(first + last);
    ASSERT_EQ(whole.size(), 1u);
    EXPECT_EQ(whole[0].mmsi, 369'190'000u);
    EXPECT_EQ(whole[0].shipName, "MT.MITCHELL");
    EXPECT_TRUE(whole[0].valid);
    EXPECT_TRUE(read(last + first).empty()) << "a fragment without its first one";
    const auto unchecked = read(first.substr(0, first.size() - 5) + "\r\n" + last);
    ASSERT_EQ(unchecked.size(), 1u);
    EXPECT_FALSE(unchecked[0].valid) << "a fragment without a checksum";
}

// Fragments that never end take the slots of one another, and nothing else.
TEST(SentencesTest, UnfinishedFragmentsAreForgotten)
{
    std::string text;
    for (int i = 0; i < 1000; ++i)
        text += session::nmeaSentence('!', "AIVDM,2,1," + std::to_string(i) + ",A,55P5TL01VI,0");
    tSeen seen;
    tSentenceReader reader;
    reader.read(text, cRecorded, seen);
    reader.read(session::nmeaSentence('!', "AIVDM,2,2,3,A,0,0"), cRecorded, seen);
    EXPECT_TRUE(seen.all.empty());
    reader.read(session::nmeaSentence('!', "AIVDM,2,2,999,A,0,0"), cRecorded, seen);
    EXPECT_EQ(seen.all.size(), 1u);
}

// Two receivers number the fragments of their messages alike.
TEST(SentencesTest, FragmentsStayOnTheirGroup)
{
    const std::string first = "!AIVDM,2,1,3,B,55P5TL01VIaAL@7WKO@mBplU@<PDhh000000001S;AJ::4A80?4i@E53,0*3E\r\n";
    const std::string last = "!AIVDM,2,2,3,B,1@0000000000000,2*55\r\n";
    tSeen seen;
    tGroupSentences sentences;
    for (const std::string& part : {first, last})
    {
        for (const std::uint16_t port : {std::uint16_t{1}, std::uint16_t{2}})
        {
            tPackageContents package{};
            package.port = port;
            package.payload = part;
            sentences.read(cRecorded, package, seen);
        }
    }
    EXPECT_EQ(seen.all.size(), 2u);
}

TEST(SentencesTest, TagBlocksDatagramsAndNonsense)
{
    const std::string heading = session::nmeaSentence('$', "HEHDT,1.5,T");
    const auto tagged = read(std::string("UdPbC\0", 6) + "\\s:HE0001,n:1*00\\" + heading + "\\x\\" + heading);
    ASSERT_EQ(tagged.size(), 2u);
    EXPECT_DOUBLE_EQ(tagged[1].headingDeg.value(), 1.5);
    const tSentence broken = read("$HEHDT,1.5,T*00\r\n")[0];
    EXPECT_FALSE(broken.valid || broken.headingDeg) << "a wrong checksum";
    const tSentence unchecked = read("$HEHDT,1.5,T\r\n")[0];
    EXPECT_FALSE(unchecked.valid);
    EXPECT_TRUE(unchecked.headingDeg);
    EXPECT_TRUE(read("$\r\n!\r\n\\\\\\\r\nHEHDT,1\r\n$heHDT,1,T\r\n$" + std::string(10'000, 'A')).empty());
    EXPECT_FALSE(one("HEHDT," + std::string(900, ',')).headingDeg);
}
