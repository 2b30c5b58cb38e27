// Connections: how they begin, change hands and end, from every thread and in every state.
#include <atomic>
#include <chrono>
#include <future>
#include <gmock/gmock.h>
#include <thread>

#include "support/saverfixture.h"

using namespace Kestova;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace
{
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

class tSaverConnectionTest : public tSaverFixture
{};

TEST_F(tSaverConnectionTest, refusesAnUnknownRadarAndStaysConnected)
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

TEST_F(tSaverConnectionTest, tellsOnceThatItWasConnected)
{
    auto saver = connectedSaver();
    EXPECT_TRUE(saver->isConnected());
    EXPECT_TRUE(saver->disconnect());
    EXPECT_FALSE(saver->isConnected());
    EXPECT_FALSE(saver->disconnect());
}

TEST_F(tSaverConnectionTest, endsTheRecordingBeforeAnUnknownRadar)
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

TEST_F(tSaverConnectionTest, connectsTwiceBeforeTheFirstAddressIsKnown)
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

TEST_F(tSaverConnectionTest, forgetsARadarWhoseAddressIsNotYetKnownForAnUnknownOne)
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

TEST_F(tSaverConnectionTest, disconnectsBeforeTheFirstAddressIsKnown)
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

TEST_F(tSaverConnectionTest, opensItsSocketsAgainAfterSocketClearWhenTheAddressChanges)
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

TEST_F(tSaverConnectionTest, refusesControlFromInsideTheObserver)
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

TEST_F(tSaverConnectionTest, refusesControlFromTheObserverWhileItIsBeingDisconnected)
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

TEST_F(tSaverConnectionTest, finishesTheFileWhenDestroyed)
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

TEST_F(tSaverConnectionTest, followsTheAddressWhileDatagramsFlow)
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

TEST_F(tSaverConnectionTest, takesControlFromManyThreadsAtOnce)
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
