#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <gmock/gmock.h>
#include <thread>

#include "support/saverfixture.h"

using namespace Kestova;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

namespace
{
struct tObserver : iRadarRecDataModifyObserver
{
    using tCall = std::function<void(const tUdpMsgInfo&, const char*, int, char*, int)>;
    explicit tObserver(tCall c) : call(std::move(c)) {}
    void UpdateRecDataModify(const tUdpMsgInfo& info, const char* groupAddr, int port, char* data, int len) override
    {
        call(info, groupAddr, port, data, len);
        ++calls;
    }
    tCall call;
    std::atomic<int> calls{0};
};

// Holds the client's thread in its report, so that no one registered later is told an address until release().
class tHeldClient : public iMultiRadarCheckerListener
{
public:
    tHeldClient()
    {
        MultiRadarClient::getInstance()->addListener(this);
        EXPECT_TRUE(waitUntil([this] { return m_entered.load(); }));
    }
    ~tHeldClient() override
    {
        release();
        MultiRadarClient::getInstance()->removeListener(this);
    }
    void release() { m_released = true; }
    void OnLocalIpChanged(unsigned int) override
    {
        m_entered = true;
        waitUntil([this] { return m_released.load(); }, 10s);
    }

private:
    std::atomic<bool> m_entered{false}, m_released{false};
};

// Changes the address to `dotted` and waits until the client has told everybody registered before.
void changeAddress(const char* dotted)
{
    struct tLast : iMultiRadarCheckerListener
    {
        void OnLocalIpChanged(unsigned int localIp) override { told = localIp; }
        std::atomic<unsigned int> told{0};
    } last;
    MultiRadarClient* const client = MultiRadarClient::getInstance();
    client->addListener(&last);
    client->setLocalInterface(dotted);
    EXPECT_TRUE(waitUntil([&] { return last.told == net::transAddr(dotted); }));
    client->removeListener(&last);
}
}  // namespace

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
    auto saver = connectedSaver({eGpsDev, eSecondArpaStream});
    send(eGpsDev, "$GPGGA");
    send(eSecondArpaStream, "");
    ASSERT_TRUE(received(*saver, eGpsDev, 1) && received(*saver, eSecondArpaStream, 1));
    saver->disconnect();
    const auto packages = recorded();
    ASSERT_EQ(packages.size(), 2u);
    const tRecordedPackage& gps = packages[packages[0].payload.empty() ? 1 : 0];
    const tRecordedPackage& arpa = packages[packages[0].payload.empty() ? 0 : 1];
    EXPECT_EQ(asText(gps.msgInfo), "1,2,4,8,0");
    EXPECT_EQ(asText(arpa.msgInfo), "2,1,5,12,0");
    EXPECT_EQ(arpa.msgLen, 0);
    EXPECT_EQ(net::transAddr(gps.group.ip), groupText());
    EXPECT_EQ(gps.group.port, port(eGpsDev));
    EXPECT_EQ(gps.timeMs, gps.timestamp_ms);
    EXPECT_GE(gps.timeMs, before);
    EXPECT_LE(gps.timeMs, utils::time::tTimeParser::GetCurrentTime_ms());
}

TEST_F(tRadarDataSaverTest, joinsTheWantedStreamsAndTheThreeFixedGroups)
{
    auto saver = connectedSaver({eImageStream, eOriginalImage, eTotalReadWriteTypes, eOtherType});
    std::vector<std::string> joined;
    for (const tGroupCounters& group : groups(*saver))
        if (group.joined)
            joined.push_back(net::transAddr(group.ip) + ":" + std::to_string(group.port) + " " + asText(group.msgInfo));
    EXPECT_THAT(joined,
                ElementsAre(groupText() + ":" + std::to_string(port(eImageStream)) + " 1,2,4,0,0",
                            "236.6.7.20:6720 1,2,4,254,0", "236.6.7.4:6768 0,1,2,255,0", "236.6.7.5:6878 0,0,3,255,0"));
}

TEST_F(tRadarDataSaverTest, recordsADatagramOfAGroupThatTwoKindsShareOnce)
{
    RadarAddress radar{};
    radar.setStreamAddress(eAisDev, group(eAisDev));
    radar.setStreamAddress(eGpsDev, group(eAisDev));
    client.setAddress("shared", 0, radar);
    auto saver = makeSaver({eAisDev, eGpsDev});
    ASSERT_TRUE(saver->connect("shared", 0, false) && socketsOpen(*saver));
    send(eAisDev, "!AIVDM");
    ASSERT_TRUE(received(*saver, eAisDev, 1));
    saver->disconnect();
    EXPECT_THAT(payloads(), ElementsAre("!AIVDM"));
}

TEST_F(tRadarDataSaverTest, saysWhatItDoesAndNamesTheRecordingAfterTheRadar)
{
    CaptureStdout();
    auto saver = connectedSaver();
    std::fflush(stdout);
    const std::string said = GetCapturedStdout();
    const auto save = said.find("Save A1_2_B\r\n");
    const auto init = said.find("Radar Data Saver Init ...\r\n");
    const auto over = said.find("Radar Data Saver Init Over ...\r\n");
    EXPECT_NE(over, std::string::npos) << said;
    EXPECT_TRUE(save < init && init < over) << said;
    const std::string file = saver->GetCurrentWriteDataFileName();
    EXPECT_TRUE(file.size() > 12 && file.substr(file.size() - 12) == "_A1_2_B.data") << file;
}

TEST_F(tRadarDataSaverTest, refusesAnUnknownRadarAndStaysConnected)
{
    auto saver = makeSaver();
    CaptureStdout();
    EXPECT_FALSE(saver->connect("nobody", 7, false));
    std::fflush(stdout);
    EXPECT_THAT(GetCapturedStdout(), HasSubstr("radar[nobody,id = 7] doesn't exist!\n"));
    EXPECT_TRUE(saver->isConnected());
    EXPECT_THAT(dataFilesBelow(dir.string()), IsEmpty());
    EXPECT_FALSE(saver->disconnect());
    EXPECT_FALSE(saver->isConnected());
}

TEST_F(tRadarDataSaverTest, tellsOnceThatItWasConnected)
{
    auto saver = connectedSaver();
    EXPECT_TRUE(saver->isConnected());
    EXPECT_TRUE(saver->disconnect());
    EXPECT_FALSE(saver->isConnected());
    EXPECT_FALSE(saver->disconnect());
}

TEST_F(tRadarDataSaverTest, endsTheRecordingBeforeAnUnknownRadar)
{
    auto saver = connectedSaver();
    const std::string file = saver->GetCurrentWriteDataFileName();
    send(eImageStream, "last");
    ASSERT_TRUE(received(*saver, eImageStream, 1));
    EXPECT_FALSE(saver->connect("nobody", 7, false));
    changeAddress("127.0.0.2");
    EXPECT_THAT(groups(*saver), IsEmpty()) << "nobody is recorded";
    storage::tDataFile closed;
    ASSERT_TRUE(closed.open(file));
    EXPECT_TRUE(closed.finished());
    EXPECT_THAT(payloads(), ElementsAre("last"));
}

TEST_F(tRadarDataSaverTest, connectsTwiceBeforeTheFirstAddressIsKnown)
{
    enter("first", 0, {eImageStream});
    enter("second", 0, {eImageStream}, 20);
    auto saver = makeSaver();
    tHeldClient held;
    ASSERT_TRUE(saver->connect("first", 0, false));
    ASSERT_TRUE(saver->connect("second", 0, false));
    EXPECT_EQ(dataFilesBelow(dir.string()).size(), 2u);
    held.release();
    ASSERT_TRUE(socketsOpen(*saver));
    EXPECT_EQ(groups(*saver).front().port, port(20));
    EXPECT_TRUE(saver->disconnect());
    changeAddress("127.0.0.2");
    EXPECT_THAT(groups(*saver), IsEmpty());
}

TEST_F(tRadarDataSaverTest, forgetsARadarWhoseAddressIsNotYetKnownForAnUnknownOne)
{
    enter("first", 0, {eImageStream});
    auto saver = makeSaver();
    {
        tHeldClient held;
        ASSERT_TRUE(saver->connect("first", 0, false));
        EXPECT_FALSE(saver->connect("nobody", 7, false));
    }
    changeAddress("127.0.0.2");
    EXPECT_THAT(groups(*saver), IsEmpty());
    EXPECT_EQ(saver->GetCurrentWriteDataFileName(), "");
}

TEST_F(tRadarDataSaverTest, disconnectsBeforeTheFirstAddressIsKnown)
{
    enter("early", 0, {eImageStream});
    auto saver = makeSaver();
    {
        tHeldClient held;
        ASSERT_TRUE(saver->connect("early", 0, false));
        EXPECT_FALSE(saver->disconnect()) << "no sockets were open";
        EXPECT_FALSE(saver->isConnected());
    }
    changeAddress("127.0.0.2");
    EXPECT_THAT(groups(*saver), IsEmpty());
    EXPECT_EQ(saver->GetCurrentWriteDataFileName(), "") << "its file is finished";
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

TEST_F(tRadarDataSaverTest, refusesControlFromInsideTheObserver)
{
    auto saver = connectedSaver();
    std::atomic<bool> refused{true};
    tObserver observer([&](auto&&...) {
        refused = refused && !saver->connect("A1:2", 1, false) && !saver->disconnect();
        saver->SocketClear();
    });
    saver->SetRecDataModifyObserver(&observer);
    saver->ManualWriteRadarData(groupText().c_str(), port(eImageStream), "x", 1);
    send(eImageStream, "y");
    ASSERT_TRUE(received(*saver, eImageStream, 1));
    EXPECT_EQ(observer.calls, 2);
    EXPECT_TRUE(refused);
    EXPECT_TRUE(saver->isConnected());
    EXPECT_TRUE(saver->disconnect()) << "the connection was left alone";
}

TEST_F(tRadarDataSaverTest, refusesControlFromTheObserverWhileItIsBeingDisconnected)
{
    auto saver = connectedSaver();
    std::promise<void> entered;
    bool refused = false;
    tObserver observer([&](auto&&...) {
        entered.set_value();
        waitUntil([&] { return !saver->isConnected(); });
        refused = !saver->disconnect();
    });
    saver->SetRecDataModifyObserver(&observer);
    send(eImageStream, "x");
    entered.get_future().wait();
    EXPECT_TRUE(saver->disconnect());
    EXPECT_TRUE(refused);
    EXPECT_THAT(payloads(), ElementsAre("x")) << "a datagram in the observer's hands is still recorded";
}

TEST_F(tRadarDataSaverTest, letsTheObserverCallEverythingElse)
{
    auto saver = connectedSaver();
    tObserver observer([&](auto&&...) {
        saver->SetRecDataModifyObserver(nullptr);
        saver->ManualWriteRadarData(groupText().c_str(), port(eImageStream), "second", 6);
        saver->ManualWriteData("10.0.0.1", 1, "third", 5, 0);
        EXPECT_TRUE(saver->isConnected());
        EXPECT_EQ(saver->GetGroupCounters(nullptr, 0), 4);
        EXPECT_TRUE(saver->WaitWriteIdle(5000));
    });
    saver->SetRecDataModifyObserver(&observer);
    send(eImageStream, "first");
    ASSERT_TRUE(received(*saver, eImageStream, 1));
    saver->disconnect();
    EXPECT_EQ(observer.calls, 1);
    EXPECT_THAT(payloads(), ElementsAre("second", "third", "first"));
}

TEST_F(tRadarDataSaverTest, saysSoWhenItHasNoFileAndCountsWhatIsLost)
{
    enter("A1:2", 1, {eImageStream});
    auto saver = makeSaver();
    std::filesystem::remove_all(dir.path());
    FILE* const inTheWay = std::fopen(dir.string().c_str(), "w");
    std::fclose(inTheWay);
    CaptureStderr();
    EXPECT_TRUE(saver->connect("A1:2", 1, false));
    EXPECT_THAT(GetCapturedStderr(), HasSubstr("no file for A1_2_B"));
    ASSERT_TRUE(socketsOpen(*saver));
    send(eImageStream, "x");
    EXPECT_TRUE(waitUntil([&] { return saver->GetWriteLostCnt() > 0; }));
}

TEST_F(tRadarDataSaverTest, finishesTheFileWhenDestroyed)
{
    auto saver = connectedSaver();
    std::atomic<int> calls{0};
    tObserver observer([&](auto&&...) { ++calls; });
    saver->SetRecDataModifyObserver(&observer);
    send(eImageStream, "kept");
    ASSERT_TRUE(received(*saver, eImageStream, 1));
    saver.reset();
    send(eImageStream, "too late");
    changeAddress("127.0.0.2");  // nobody tells an object that is gone
    EXPECT_EQ(calls, 1);
    EXPECT_THAT(payloads(), ElementsAre("kept"));
}

TEST_F(tRadarDataSaverTest, followsTheAddressWhileDatagramsFlow)
{
    auto saver = connectedSaver();
    std::atomic<bool> sending{true};
    std::thread radar([&] {
        net::UdpSender sender(group(eImageStream), net::transAddr("127.0.0.1"), 0);
        while (sending)
            sender.sendData("spoke", 5);
    });
    for (int i = 0; i < 10; ++i)
        changeAddress(i % 2 == 0 ? "127.0.0.2" : "127.0.0.1");
    EXPECT_TRUE(socketsOpen(*saver) && received(*saver, eImageStream, 100));
    sending = false;
    radar.join();
    EXPECT_TRUE(saver->disconnect());
    EXPECT_GE(recorded().size(), 100u);
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
    EXPECT_FALSE(saver->isConnected());
    EXPECT_THAT(groups(*saver), IsEmpty());
    EXPECT_TRUE(saver->connect("A1:2", 1, false) && socketsOpen(*saver)) << "and works afterwards";
}
