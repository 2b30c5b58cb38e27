#include <cstring>
#include <gtest/gtest.h>

#include "KestovaStorage/internal/recordingname.h"
#include "KestovaStorage/internal/servicequery.h"
#include "KestovaStorage/internal/streamcatalogue.h"
#include "UdpSocket/udpsocket.h"
#include "support/recordedpackages.h"

using namespace Kestova;
using namespace std::chrono_literals;

namespace
{
NetAddress address(const char* group, std::uint16_t port)
{
    return {net::transAddr(group), net::HtoNs(port)};
}

std::vector<std::string> asTexts(const std::vector<tRadarGroup>& groups)
{
    std::vector<std::string> texts;
    for (const tRadarGroup& group : groups)
        texts.push_back(net::transAddr(group.address.ip) + ":" + std::to_string(net::NtoHs(group.address.port)) + " " +
                        asText(group.msgInfo) + " " + std::to_string(group.recBuffSize));
    return texts;
}

const std::vector<std::string> cFixed{"236.6.7.20:6720 1,2,4,254,0 1024", "236.6.7.4:6768 0,1,2,255,0 1024",
                                      "236.6.7.5:6878 0,0,3,255,0 1024"};
}  // namespace

TEST(tStreamCatalogueTest, holdsTheRowsThatRecordingsAreStampedWith)
{
    const std::vector<std::string> rows{"1,2,4,0,0 20480", "2,1,5,1,0 2048",  "1,2,4,2,0 2048",  "1,2,4,3,0 1024",
                                        "2,1,5,4,0 1024",  "1,2,4,5,0 1024",  "1,2,4,6,0 20480", "1,2,4,7,0 2048",
                                        "1,2,4,8,0 2048",  "1,2,4,9,0 2048",  "1,2,4,10,0 2048", "2,1,5,12,0 1024",
                                        "1,2,4,13,0 2048", "2,1,5,14,0 1024", "1,2,4,15,0 2048", "2,1,5,16,0 1024",
                                        "1,2,4,17,0 2048", "0,0,0,0,0 0"};
    ASSERT_EQ(RadarMsgSocketInfos.size(), rows.size());
    for (std::size_t kind = 0; kind < rows.size(); ++kind)
        EXPECT_EQ(asText(RadarMsgSocketInfos[kind].msgInfo) + " " +
                      std::to_string(RadarMsgSocketInfos[kind].recBuffSize),
                  rows[kind])
            << "kind " << kind;
}

TEST(tStreamCatalogueTest, joinsTheWantedStreamsInOrderThenTheFixedGroups)
{
    RadarAddress radar{};
    radar.setStreamAddress(eImageStream, address("239.1.0.1", 6001));
    radar.setStreamAddress(eArpaStream, address("239.1.0.4", 6004));
    radar.setStreamAddress(eRadarClientState, address("239.1.0.18", 6018));
    std::vector<std::string> wanted{"239.1.0.18:6018 0,0,0,0,0 0", "239.1.0.1:6001 1,2,4,0,0 20480"};
    wanted.insert(wanted.end(), cFixed.begin(), cFixed.end());
    EXPECT_EQ(asTexts(radarGroups(radar, {eRadarClientState, eImageStream})), wanted);
}

TEST(tStreamCatalogueTest, readsTheAddressOfAKindSixBytesBehindTheOneBefore)
{
    RadarAddress radar{};
    const NetAddress group = address("239.1.0.9", 6009);
    std::memcpy(reinterpret_cast<char*>(&radar) + 6 + 6 * eGpsDev, &group, sizeof group);
    EXPECT_EQ(asTexts(radarGroups(radar, {eGpsDev})).front(), "239.1.0.9:6009 1,2,4,8,0 2048");
}

TEST(tStreamCatalogueTest, leavesOutKindsWithoutAnAddress)
{
    RadarAddress radar{};
    radar.setStreamAddress(eImageCtrl, address("239.1.0.2", 0));
    radar.setStreamAddress(eImageState, {0, net::HtoNs(6003)});
    EXPECT_EQ(asTexts(radarGroups(
                  radar, {eImageStream, eImageCtrl, eImageState, eTotalReadWriteTypes, eRadarCheck, eOtherType})),
              cFixed);
}

TEST(tStreamCatalogueTest, joinsAGroupThatSeveralKindsNameOnceForTheFirst)
{
    RadarAddress radar{};
    radar.setStreamAddress(eAisDev, address("239.1.0.8", 6008));
    radar.setStreamAddress(eGpsDev, address("239.1.0.8", 6008));
    radar.setStreamAddress(eDepthDev, address("236.6.7.4", 6768));
    const auto groups = asTexts(radarGroups(radar, {eGpsDev, eAisDev, eGpsDev, eDepthDev}));
    const std::vector<std::string> wanted{"239.1.0.8:6008 1,2,4,8,0 2048", "236.6.7.4:6768 1,2,4,9,0 2048", cFixed[0],
                                          cFixed[2]};
    EXPECT_EQ(groups, wanted);
}

TEST(tRecordingNameTest, isSerialAndLetter)
{
    const struct
    {
        const char* serial;
        unsigned short id;
        const char* name;
    } cases[] = {
        {"A1:2", 1, "A1_2_B"},   {"A1:2:3", 0, "A1_2:3_A"},   {":A1:2", 2, ":A1:2_C"}, {"A1", 25, "A1_Z"},
        {"A1", 26, "A1_26"},     {"A1", 191, "A1_191"},       {"A1", 238, "A1_238"},   {"A1", 65535, "A1_65535"},
        {"../x", 0, "..%2Fx_A"}, {"a\\b\n", 0, "a%5Cb%0A_A"}, {"", 0, "_A"},           {"\xC3\xA9", 0, "\xC3\xA9_A"}};
    for (const auto& c : cases)
        EXPECT_EQ(recordingName(c.serial, c.id), c.name);
}

TEST(tServiceSilenceTest, lastsFromTheStartAndForWholePeriodsAfterwards)
{
    tServiceSilence silence;
    const tServiceSilence::tTime start{};
    EXPECT_TRUE(silence.lasts(start, 6s)) << "never heard";
    silence.heard(start);
    EXPECT_FALSE(silence.lasts(start + 5999ms, 6s));
    EXPECT_TRUE(silence.lasts(start + 6000ms, 6s));
    silence.heard(start + 7s);
    EXPECT_FALSE(silence.lasts(start + 12s, 6s));
}
