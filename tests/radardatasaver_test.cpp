// A recorder of a radar: what it records, and how its connections begin, change and end.
#include <algorithm>
#include <chrono>
#include <gmock/gmock.h>
#include <set>
#include <thread>

#include "support/addresslistener.h"
#include "support/kernelstamps.h"
#include "support/processentries.h"
#include "support/saverfixture.h"

using namespace Kestova;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

class tRadarDataSaverTest : public tSaverFixture
{
protected:
    // Changes the address and waits until the client has reported it to everybody registered before.
    void changeAddress(const char* dotted)
    {
        tAddressListener last;
        client.addListener(&last);
        client.setLocalInterface(dotted);
        EXPECT_TRUE(waitUntil([&] { return last.count() != 0 && last.all().back() == dotted; }));
    }
    static std::uint64_t presentTime_us()
    {
        const auto now = std::chrono::system_clock::now().time_since_epoch();
        return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(now).count());
    }
    // The times in us of what recorded() returns, of the one file there is.
    std::vector<std::uint64_t> fineTimes() const
    {
        std::vector<std::uint64_t> times;
        storage::tDataFile file;
        EXPECT_TRUE(file.open(*dataFilesIn(dir.string()).begin()));
        for (std::size_t i = 0; i < file.recordCount(); ++i)
        {
            std::string bytes;
            EXPECT_TRUE(file.read(i, bytes) && file.fineTime(i) >= 0);
            if (!groupText(packageOf({0, bytes})).starts_with("236.6.7."))
                times.push_back(file.record(i).timeMs * 1000 + static_cast<std::uint64_t>(file.fineTime(i)));
        }
        return times;
    }
};

TEST_F(tRadarDataSaverTest, recordsEverythingReceivedBeforeItDisconnectsInOrder)
{
    auto saver = connectedSaver();
    net::UdpSender radar(group(eImageStream), net::transAddr("127.0.0.1"), 0);
    std::vector<std::string> sent;
    for (int i = 0; i < 2000; ++i)
    {
        sent.push_back("spoke " + std::to_string(i) + std::string(static_cast<std::size_t>(i % 700), '.'));
        ASSERT_TRUE(radar.sendData(sent.back().data(), static_cast<int>(sent.back().size())));
    }
    ASSERT_TRUE(received(*saver, eImageStream, 2000));
    EXPECT_TRUE(saver->disconnect());
    EXPECT_EQ(payloads(), sent);
    EXPECT_EQ(saver->GetWriteLostCnt(), 0u);
}

TEST_F(tRadarDataSaverTest, receivesItsGroupsOnOneThreadIfItIsToAndRecordsThemInOrder)
{
    std::set<std::thread::id> threads;
    std::atomic<bool> go{false};
    tObserver observer([&](auto&&...) {
        EXPECT_TRUE(waitUntil([&] { return go.load(); }));
        threads.insert(std::this_thread::get_id());
    });
    enter("A1:2", 1, {eImageStream, eGpsDev});
    auto saver = makeSaver({eImageStream, eGpsDev});
    saver->SetSharedReception(true);
    saver->SetFineTimes(true);
    saver->SetRecDataModifyObserver(&observer);
    ASSERT_TRUE(saver->connect("A1:2", 1, false) && socketsOpen(*saver) && waitForKernelStamps());
    std::vector<std::string> sent;
    for (int i = 0; i < 200; ++i)
    {
        sent.push_back(std::to_string(i));
        send(i % 3 == 0 ? eGpsDev : eImageStream, sent.back());
    }
    const std::uint64_t sent_us = presentTime_us();
    go = true;
    EXPECT_TRUE(saver->disconnect());
    EXPECT_EQ(payloads(), sent) << "what had arrived is recorded, without waiting for it";
    EXPECT_EQ(threads.size(), 1u);
    const std::vector<std::uint64_t> times = fineTimes();
    EXPECT_TRUE(std::ranges::is_sorted(times));
    EXPECT_EQ(std::ranges::upper_bound(times, sent_us) - times.begin(), 200) << "the kernel's times";
}

TEST_F(tRadarDataSaverTest, printsItsProgressAndNamesTheRecordingAfterTheRadar)
{
    CaptureStdout();
    auto saver = connectedSaver();
    std::fflush(stdout);
    const std::string printed = GetCapturedStdout();
    EXPECT_THAT(printed, HasSubstr("Save A1_2_B\r\nRadar Data Saver Init ...\r\nRadar Data Saver Init Over ...\r\n"));
    EXPECT_THAT(saver->GetCurrentWriteDataFileName(), EndsWith("_A1_2_B.data"));
}

TEST_F(tRadarDataSaverTest, recordsWhatTheObserverMadeOfADatagramWithItsGroupAndTime)
{
    const auto before = utils::time::tTimeParser::GetCurrentTime_ms();
    const std::string about = "1,2,4,8,0 " + groupIp() + ":" + std::to_string(port(eGpsDev)) + " 5";
    tObserver observer([&](const tUdpMsgInfo& info, const char* groupAddr, int fromPort, char* data, int len) {
        EXPECT_EQ(asText(info) + " " + groupAddr + ":" + std::to_string(fromPort) + " " + std::to_string(len), about);
        data[0] = 'J';
    });
    auto saver = connectedSaver({eGpsDev});
    saver->SetRecDataModifyObserver(&observer);
    send(eGpsDev, "Hello");
    ASSERT_TRUE(waitUntil([&] { return observer.calls == 1; }));
    saver->SetRecDataModifyObserver(nullptr);
    send(eGpsDev, "Hello");
    ASSERT_TRUE(received(*saver, eGpsDev, 2));
    saver->disconnect();
    ASSERT_THAT(payloads(), ElementsAre("Jello", "Hello"));
    const tRecordedPackage gps = recorded()[0];
    EXPECT_EQ(asText(gps.msgInfo) + " " + groupText(gps) + " " + std::to_string(gps.msgLen), about);
    EXPECT_TRUE(gps.timeMs >= before && gps.timeMs <= utils::time::tTimeParser::GetCurrentTime_ms());
}

TEST_F(tRadarDataSaverTest, recordsWhatIsWrittenByHand)
{
    tObserver shout([](const tUdpMsgInfo&, const char*, int, char* data, int) { data[0] = 'X'; });
    auto saver = connectedSaver();
    saver->SetRecDataModifyObserver(&shout);
    const std::string mine = "datagram";
    saver->ManualWriteRadarData(groupIp().c_str(), port(eImageStream), mine.data(), 8);
    saver->ManualWriteRadarData(groupIp().c_str(), port(eArpaStream), mine.data(), 8);  // not joined
    saver->ManualWriteRadarData(nullptr, 0, nullptr, -1);
    saver->ManualWriteData("10.1.2.3", 99, "note", 4, 1700000000123);
    saver->disconnect();
    saver->ManualWriteData("10.1.2.3", 99, "late", 4, 0);  // no file, so it is not even built
    EXPECT_TRUE(saver->WaitWriteIdle(5000));
    EXPECT_EQ(saver->GetWriteLostCnt(), 0u);
    EXPECT_EQ(mine, "datagram");
    EXPECT_THAT(payloads(), ElementsAre("Xatagram", "note"));
    const tRecordedPackage note = recorded().at(1);
    EXPECT_EQ(asText(recorded()[0].msgInfo) + " " + asText(note.msgInfo), "1,2,4,0,0 0,0,0,0,0");
    EXPECT_EQ(groupText(note) + " " + std::to_string(note.timeMs), "10.1.2.3:99 1700000000123");
    ASSERT_TRUE(saver->CreateNewWritingFile("hand", false, 0));
    for (int i = 0; i < 1'000; ++i)
        saver->ManualWriteData("10.1.2.3", 99, noise().data(), 60'000, 0);
    saver.reset();
    EXPECT_EQ(recorded().size(), 1'002u) << "what waits is written first";
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

TEST_F(tRadarDataSaverTest, endsByDisconnectingByAnUnknownRadarAndWhenItIsDestroyed)
{
    CaptureStdout();
    changeAddress("127.0.0.1");  // begins what stays open with the process
    const auto descriptors = openDescriptors();
    for (const std::string way : {"disconnect", "unknown radar", "destroy"})
        for (const bool recording : {false, true})
        {
            SCOPED_TRACE(way);
            auto saver = recording ? connectedSaver() : makeSaver();
            if (recording)
                send(eImageStream, "last");
            EXPECT_TRUE(!recording || received(*saver, eImageStream, 1));
            if (way == "destroy")
                saver.reset();
            else
                EXPECT_EQ(way == "disconnect" ? saver->disconnect() : saver->connect("nobody", 7, false),
                          way == "disconnect" && recording);
            send(eImageStream, "too late");
            changeAddress(recording ? "127.0.0.1" : "127.0.0.2");
            if (saver == nullptr)
                continue;
            EXPECT_EQ(saver->GetCurrentWriteDataFileName(), "") << "its file is finished";
            EXPECT_THAT(groups(*saver), IsEmpty()) << "nothing is recorded";
            EXPECT_EQ(saver->isConnected(), way != "disconnect");
            EXPECT_FALSE(saver->disconnect() || saver->isConnected());
        }
    EXPECT_EQ(openDescriptors(), descriptors);
    std::fflush(stdout);
    EXPECT_THAT(GetCapturedStdout(), HasSubstr("radar[nobody,id = 7] doesn't exist!\n"));
    EXPECT_EQ(dataFilesIn(dir.string()).size(), 3u);
    EXPECT_THAT(payloads(), ElementsAre("last", "last", "last"));
}

TEST_F(tRadarDataSaverTest, opensItsSocketsAgainAfterSocketClearWhenTheAddressChanges)
{
    auto saver = connectedSaver();
    saver->SocketClear();
    EXPECT_THAT(groups(*saver), IsEmpty());
    EXPECT_TRUE(saver->isConnected());
    EXPECT_NE(saver->GetCurrentWriteDataFileName(), "");
    changeAddress("127.0.0.2");
    ASSERT_TRUE(socketsOpen(*saver));
    send(eImageStream, "again");
    EXPECT_TRUE(received(*saver, eImageStream, 1));
}

TEST_F(tRadarDataSaverTest, refusesControlFromInsideTheObserverAndLetsItCallEverythingElse)
{
    auto saver = connectedSaver();
    std::atomic<bool> ending{false}, entered{false};
    tObserver observer([&](auto&&...) {
        entered = ending.load();
        waitUntil([&] { return !ending || !saver->isConnected(); });
        EXPECT_FALSE(saver->connect("A1:2", 1, false) || saver->disconnect());
        saver->SocketClear();
        saver->SetRecDataModifyObserver(nullptr);
        saver->ManualWriteRadarData(groupIp().c_str(), port(eImageStream), "second", 6);
        saver->ManualWriteData("10.0.0.1", 1, "third", 5, 0);
        EXPECT_TRUE(saver->WaitWriteIdle(5000));
    });
    saver->SetRecDataModifyObserver(&observer);
    saver->ManualWriteRadarData(groupIp().c_str(), port(eImageStream), "x", 1);
    EXPECT_EQ(saver->GetGroupCounters(nullptr, 0), 4) << "the connection was left alone";
    EXPECT_TRUE(saver->isConnected());
    ending = true;
    saver->SetRecDataModifyObserver(&observer);
    send(eImageStream, "first");
    ASSERT_TRUE(waitUntil([&] { return entered.load(); }));
    EXPECT_TRUE(saver->disconnect());
    EXPECT_EQ(observer.calls, 2);
    EXPECT_THAT(payloads(), ElementsAre("second", "third", "x", "second", "third", "first"));
}

TEST_F(tRadarDataSaverTest, takesControlFromManyThreadsAtOnce)
{
    auto saver = connectedSaver();
    tObserver observer([&](auto&&...) { saver->GetGroupCounters(nullptr, 0); });
    std::atomic<bool> sending{true};
    std::thread radar([&] {
        net::UdpSender sender(group(eImageStream), net::transAddr("127.0.0.1"), 0);
        for (int i = 0; sending; ++i)
        {
            sender.sendData("spoke", 5);
            saver->SetRecDataModifyObserver(i % 2 == 0 ? &observer : nullptr);
            std::this_thread::yield();
        }
    });
    std::vector<std::thread> owners;
    for (int owner = 0; owner < 3; ++owner)
        owners.emplace_back([&, owner] {
            for (int i = 0; i < 8; ++i)
            {
                saver->connect(i % 3 == owner ? "nobody" : "A1:2", 1, false);
                client.setLocalInterface(i % 2 == 0 ? "127.0.0.2" : "127.0.0.1");
                owner == 0 ? saver->SocketClear() : static_cast<void>(saver->disconnect());
            }
        });
    for (std::thread& owner : owners)
        owner.join();
    sending = false;
    radar.join();
    saver->SetRecDataModifyObserver(nullptr);
    saver->disconnect();
    EXPECT_TRUE(!saver->isConnected() && groups(*saver).empty());
    EXPECT_TRUE(saver->connect("A1:2", 1, false) && socketsOpen(*saver)) << "and works afterwards";
}
