// Replays as a display on the network and an application see them. Each test has a working folder of its own.
#include <filesystem>
#include <gmock/gmock.h>

#include "support/datagramcollector.h"
#include "support/radarreplay.h"
#include "support/recording.h"
#include "support/tempdir.h"

using namespace Kestova;
using namespace std::chrono_literals;

class tRadarDataReplayerTest : public testing::Test
{
protected:
    // Every replayer makes a folder where the process works.
    struct tWorkingDir : tTempDir
    {
        tWorkingDir() { std::filesystem::current_path(path()); }
        ~tWorkingDir() { std::filesystem::current_path("/"); }
    };
    std::string file(const std::string& name, const tSegments& segments) const
    {
        recordByHand(dir.file(name), segments);
        return dir.file(name);
    }
    // One record at once, the next one an hour later.
    std::string waiting(const std::string& name, const std::string& payload = "a") const
    {
        return file(name,
                    {{1000, radarRecord(cImage, a.group, payload)}, {3'601'000, radarRecord(cImage, a.group, "z")}});
    }
    std::unique_ptr<tRadarDataReplayer> makeReplayer(bool net = true, const char* localIp = "127.0.0.1")
    {
        const eReadWriteType kinds[] = {eArpaStream, eImageStream};
        auto made = std::make_unique<tRadarDataReplayer>(kinds, 2, net, localIp, ".data");
        made->SetReplayModifyObserver(&editor);
        return made;
    }
    bool quiet(std::chrono::milliseconds time) const
    {
        return !waitUntil([&, before = a.count()] { return a.count() > before; }, time);
    }

    static constexpr tUdpMsgInfo cImage{1, 1, eReadType, eImageStream, 1};
    const tWorkingDir dir;
    tGroupListener a, b;
    tRadarReplayLog log, otherLog;
    tReplayEditor editor;
    std::unique_ptr<tRadarDataReplayer> replayer = makeReplayer();
};

TEST_F(tRadarDataReplayerTest, sendsEveryRecordToItsGroupInOrder)
{
    tSegments segments;
    const auto payload = [](std::uint64_t i) { return std::string(i == 9 ? 60'000 : i, static_cast<char>(i)); };
    for (std::uint64_t i = 0; i < 60; ++i)
        segments.push_back({1000 + i / 4, radarRecord(cImage, (i % 2 == 0 ? a : b).group, payload(i))});
    replayer->OpenReadDataFileorFolder(file("a.data", segments), nullptr);
    ASSERT_TRUE(a.heard(30) && b.heard(30));
    for (std::size_t i = 0; i < 60; ++i)
    {
        const tReceivedDatagram datagram = (i % 2 == 0 ? a : b).all()[i / 2];
        EXPECT_TRUE(datagram.payload == payload(i)) << i;
        EXPECT_EQ(datagram.from, (i % 2 == 0 ? a : b).all()[0].from);  // one sender
    }
    EXPECT_TRUE(waitUntil([&] { return replayer->GetSentCnt() == 60u; }));  // counted when it is sent
    for (const bool closed : {false, true})  // a playlist keeps its source ports until it is closed
    {
        const std::size_t before = a.count();
        if (closed)
            replayer->CloseReadingFile();
        replayer->OpenReadDataFileorFolder(waiting("next.data"), nullptr);
        ASSERT_TRUE(a.heard(before + 1));
        EXPECT_EQ(a.all()[before].from != a.all()[0].from, closed);
    }
    EXPECT_FALSE(storage::tDataStorageIO::DiskCheckThreadEnable);
}

TEST_F(tRadarDataReplayerTest, redirectsRecordsButTurnsTheirSpokesWhereTheyWereRecordedAndOnlyOnTheNetwork)
{
    editor.circle = [](char*, int& number, int& azimuth) { return (number = azimuth = 0) == 0; };
    editor.redirect = [&](std::uint32_t* ip, std::uint16_t* port) {
        *ip = b.group.ip, *port = net::NtoHs(b.group.port);
    };
    for (const bool net : {false, true})
    {
        replayer = makeReplayer(net);
        replayer->OpenReadDataFileorFolder(waiting("a.data"), &log);
        ASSERT_TRUE(log.waitFor("a", net ? 2 : 1) && replayer->Pause(true));
        replayer->CircleLoop(true);
        EXPECT_TRUE(net || (quiet(60ms) && a.count() + b.count() == 0));
    }
    EXPECT_TRUE(a.heard(1) && b.count() == 1);
    replayer->CloseReadingFile();  // the loop turns on
    EXPECT_TRUE(a.heard(2) && a.all()[1].payload == "a");
    replayer->CircleLoop(false);
    EXPECT_TRUE(quiet(2100ms));  // a pass takes 2 s
    replayer->CircleLoop(true);
    EXPECT_TRUE(a.heard(3));
    replayer.reset();
    EXPECT_TRUE(quiet(2100ms));
}

TEST_F(tRadarDataReplayerTest, repeatsServiceMessagesWithAMarkWhenAnotherRecordingIsOpenedToo)
{
    tDatagramCollector service;
    const net::UdpReceiver receiver(&service, loopbackIp(), {net::transAddr("236.6.7.5"), net::HtoNs(6878)}, 0);
    std::string message = "service of " + std::to_string(::getpid()) + " ";
    message.resize(222, 'm');
    const tUdpMsgInfo info{1, 1, eMultiRadarService, eImageStream, 1};
    replayer->OpenReadDataFileorFolder(file("a.data", {{1000, radarRecord(info, a.group, message)}}), nullptr);
    ASSERT_TRUE(a.heard(1) && a.all()[0].payload == message);
    replayer->OpenReadDataFileorFolder(waiting("next.data"), nullptr);
    const auto marked = testing::Field(&tReceivedDatagram::payload, message.replace(14, 2, "_R"));
    EXPECT_TRUE(waitUntil([&] { return testing::Value(service.all(), testing::Contains(marked)); }));
}

TEST_F(tRadarDataReplayerTest, takesItsOwnCallsFromInsideItsCallbacksAndKeepsObserversApart)
{
    const std::string first = waiting("a.data"), other = waiting("b.data", "b");
    int edits = 0;
    editor.edit = [&](char*, int) {
        replayer->CircleLoop(++edits % 2 != 0), replayer->CircleLoop(false);
        replayer->SetReplayModifyObserver(nullptr);
    };
    log.react = [&](const std::string& word) { word == "a" && replayer->OpenReadDataFileorFolder(other, &otherLog); };
    replayer->OpenReadDataFileorFolder(first, &log);
    ASSERT_TRUE(otherLog.waitFor("b") && replayer->Jump(1.0));
    EXPECT_TRUE(otherLog.waitForText("0 1000-3601000 1 " + counterText(other, 0, 0) + " b 1 4 3 1 z 4"))
        << otherLog.text();
    EXPECT_EQ(log.text(), "0 1000-3601000 1 " + counterText(first, 0, 0) + " a 1 4 3");
    EXPECT_EQ(edits, 1);
}

TEST_F(tRadarDataReplayerTest, goesOnWhereTheNetworkRefusesAndSaysItOnceADestination)
{
    tSegments segments;
    for (std::uint64_t i = 0; i < 20; ++i)
        segments.push_back({1000 + i, radarRecord(cImage, (i % 2 == 0 ? a : b).group,
                                                  i % 4 < 2 ? std::string(65'520, 'l') : "p")});  // l: too long
    for (const bool mine : {true, false})
    {
        testing::internal::CaptureStderr();
        replayer = makeReplayer(true, mine ? "127.0.0.1" : "203.0.113.7");
        replayer->OpenReadDataFileorFolder(file("a.data", segments), &log);
        EXPECT_TRUE(log.waitFor("4", mine ? 1 : 2));
        EXPECT_EQ(replayer->GetSentCnt(), mine ? 10u : 0u);
        EXPECT_EQ(replayer->GetSendRefusedCnt(), mine ? 10u : 20u);
        const std::string said = testing::internal::GetCapturedStderr();
        EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), mine ? 2 : 3) << said;  // and the service's
    }
    EXPECT_TRUE(a.heard(5) && b.heard(5));
}
