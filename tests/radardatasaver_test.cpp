#include <gmock/gmock.h>

#include "support/saverfixture.h"

using namespace Kestova;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

class tRadarDataSaverTest : public tSaverFixture
{};

TEST_F(tRadarDataSaverTest, recordsEverythingReceivedBeforeItDisconnectsInOrder)
{
    constexpr int cDatagrams = 2000;
    auto saver = connectedSaver();
    net::UdpSender radar(group(eImageStream), net::transAddr("127.0.0.1"), 0);
    std::vector<std::string> sent;
    for (int i = 0; i < cDatagrams; ++i)
    {
        sent.push_back("spoke " + std::to_string(i) + std::string(static_cast<std::size_t>(i % 700), '.'));
        ASSERT_TRUE(radar.sendData(sent.back().data(), static_cast<int>(sent.back().size())));
    }
    ASSERT_TRUE(received(*saver, eImageStream, cDatagrams));
    EXPECT_TRUE(saver->disconnect());
    EXPECT_EQ(payloads(), sent);
    EXPECT_EQ(saver->GetWriteLostCnt(), 0u);
}

TEST_F(tRadarDataSaverTest, writesWhatWaitsBeforeItFinishesTheFile)
{
    std::vector<std::string> given;
    for (int recording = 0; recording < 20; ++recording)
    {
        auto saver = makeSaver();
        ASSERT_TRUE(saver->CreateNewWritingFile("hand", false, 0));
        for (int i = 0; i < 50; ++i)
        {
            given.push_back(std::to_string(recording) + "." + std::to_string(i));
            saver->ManualWriteData(nullptr, 0, given.back().data(), static_cast<int>(given.back().size()), 0);
        }
    }
    EXPECT_EQ(payloads(), given);
}

TEST_F(tRadarDataSaverTest, stampsInfoBlockGroupAndTime)
{
    const auto before = utils::time::tTimeParser::GetCurrentTime_ms();
    auto saver = connectedSaver({eGpsDev});
    send(eGpsDev, "$GPGGA");
    ASSERT_TRUE(received(*saver, eGpsDev, 1));
    saver->disconnect();
    ASSERT_EQ(recorded().size(), 1u);
    const tRecordedPackage gps = recorded()[0];
    EXPECT_EQ(asText(gps.msgInfo), "1,2,4,8,0");
    EXPECT_EQ(gps.msgLen, 6);
    EXPECT_EQ(net::transAddr(gps.group.ip) + ":" + std::to_string(gps.group.port),
              groupText() + ":" + std::to_string(port(eGpsDev)));
    EXPECT_EQ(gps.timeMs, gps.timestamp_ms);
    EXPECT_TRUE(gps.timeMs >= before && gps.timeMs <= utils::time::tTimeParser::GetCurrentTime_ms());
}

TEST_F(tRadarDataSaverTest, joinsTheWantedStreamsInOrderThenTheFixedGroupsAndEachGroupOnce)
{
    const NetAddress gps = group(eGpsDev);
    RadarAddress radar{};
    std::memcpy(reinterpret_cast<char*>(&radar) + 6 + 6 * eGpsDev, &gps, sizeof gps);
    radar.setStreamAddress(eAisDev, gps);
    radar.setStreamAddress(eDepthDev, {net::transAddr("236.6.7.4"), net::HtoNs(6768)});
    radar.setStreamAddress(eImageCtrl, {gps.ip, 0});
    radar.setStreamAddress(eImageState, {0, gps.port});
    client.setAddress("shared", 0, radar);
    auto saver = makeSaver({eGpsDev, eAisDev, eGpsDev, eDepthDev, eImageStream, eImageCtrl, eImageState,
                            eTotalReadWriteTypes, eRadarCheck, eOtherType});
    ASSERT_TRUE(saver->connect("shared", 0, false) && socketsOpen(*saver));
    std::vector<std::string> joined;
    for (const tGroupCounters& each : groups(*saver))
        if (each.joined)
            joined.push_back(net::transAddr(each.ip) + ":" + std::to_string(each.port) + " " + asText(each.msgInfo));
    EXPECT_THAT(joined, ElementsAre(addressText(gps) + " 1,2,4,8,0", "236.6.7.4:6768 1,2,4,9,0",
                                    "236.6.7.20:6720 1,2,4,254,0", "236.6.7.5:6878 0,0,3,255,0"));
    saver = connectedSaver();
    EXPECT_EQ(asText(groups(*saver).at(2).msgInfo), "0,1,2,255,0");
}

TEST_F(tRadarDataSaverTest, printsItsProgressAndNamesTheRecordingAfterTheRadar)
{
    CaptureStdout();
    auto saver = connectedSaver();
    std::fflush(stdout);
    const std::string printed = GetCapturedStdout();
    const auto save = printed.find("Save A1_2_B\r\n");
    const auto init = printed.find("Radar Data Saver Init ...\r\n");
    const auto over = printed.find("Radar Data Saver Init Over ...\r\n");
    EXPECT_NE(over, std::string::npos) << printed;
    EXPECT_TRUE(save < init && init < over) << printed;
    const std::string file = saver->GetCurrentWriteDataFileName();
    EXPECT_TRUE(file.size() > 12 && file.substr(file.size() - 12) == "_A1_2_B.data") << file;
}

TEST_F(tRadarDataSaverTest, recordsWhatTheObserverMadeOfADatagram)
{
    std::string seen;
    tObserver observer([&](const tUdpMsgInfo& info, const char* groupAddr, int fromPort, char* data, int len) {
        seen = asText(info) + " " + groupAddr + ":" + std::to_string(fromPort) + " " + std::to_string(len);
        data[0] = 'J';
    });
    auto saver = connectedSaver();
    saver->SetRecDataModifyObserver(&observer);
    send(eImageStream, "Hello");
    ASSERT_TRUE(waitUntil([&] { return observer.calls == 1; }));
    saver->SetRecDataModifyObserver(nullptr);
    send(eImageStream, "Hello");
    ASSERT_TRUE(received(*saver, eImageStream, 2));
    saver->disconnect();
    EXPECT_EQ(seen, "1,2,4,0,0 " + groupText() + ":" + std::to_string(port(eImageStream)) + " 5");
    EXPECT_THAT(payloads(), ElementsAre("Jello", "Hello"));
}

TEST_F(tRadarDataSaverTest, recordsWhatIsWrittenByHand)
{
    tObserver shout([](const tUdpMsgInfo&, const char*, int, char* data, int) { data[0] = 'X'; });
    auto saver = connectedSaver();
    saver->SetRecDataModifyObserver(&shout);
    const std::string mine = "datagram";
    saver->ManualWriteRadarData(groupText().c_str(), port(eImageStream), mine.data(), 8);
    saver->ManualWriteRadarData(groupText().c_str(), port(eArpaStream), mine.data(), 8);  // not joined
    saver->ManualWriteRadarData(nullptr, 0, nullptr, -1);
    saver->ManualWriteData("10.1.2.3", 99, "note", 4, 1700000000123);
    saver->disconnect();
    saver->ManualWriteData("10.1.2.3", 99, "late", 4, 0);  // no file, so it is not even built
    EXPECT_TRUE(saver->WaitWriteIdle(5000));
    EXPECT_EQ(saver->GetWriteLostCnt(), 0u);
    EXPECT_EQ(mine, "datagram");
    const auto packages = recorded();
    ASSERT_EQ(packages.size(), 2u);
    EXPECT_EQ(packages[0].payload, "Xatagram");
    EXPECT_EQ(asText(packages[0].msgInfo), "1,2,4,0,0");
    EXPECT_EQ(packages[1].payload, "note");
    EXPECT_EQ(asText(packages[1].msgInfo), "0,0,0,0,0");
    EXPECT_EQ(packages[1].timeMs, 1700000000123u);
    EXPECT_EQ(net::transAddr(packages[1].group.ip) + ":" + std::to_string(packages[1].group.port), "10.1.2.3:99");
}

TEST_F(tRadarDataSaverTest, reportsThatItHasNoFileAndCountsWhatIsLost)
{
    enter("A1:2", 1, {eImageStream});
    auto saver = makeSaver();
    std::filesystem::remove_all(dir.path());
    std::fclose(std::fopen(dir.string().c_str(), "w"));  // in the way
    CaptureStderr();
    EXPECT_TRUE(saver->connect("A1:2", 1, false));
    EXPECT_THAT(GetCapturedStderr(), HasSubstr("no file for A1_2_B"));
    ASSERT_TRUE(socketsOpen(*saver));
    send(eImageStream, "x");
    EXPECT_TRUE(waitUntil([&] { return saver->GetWriteLostCnt() > 0; }));
}
