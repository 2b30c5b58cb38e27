// Connections: how they begin, change hands and end, from every thread and in every state.
#include <future>
#include <gmock/gmock.h>
#include <optional>
#include <thread>

#include "support/addresslistener.h"
#include "support/processentries.h"
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
// Holds the client's thread in its report, so that nobody registered later gets an address until release().
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

// Changes the address to `dotted` and waits until the client has reported it to everybody registered before.
void changeAddress(const char* dotted)
{
    tAddressListener last;
    MultiRadarClient::getInstance()->addListener(&last);
    MultiRadarClient::getInstance()->setLocalInterface(dotted);
    EXPECT_TRUE(waitUntil([&] { return last.count() != 0 && last.all().back() == dotted; }));
}
}  // namespace

class tSaverConnectionTest : public tSaverFixture
{};

TEST_F(tSaverConnectionTest, endsInEveryStateByDisconnectingOrByAnUnknownRadar)
{
    enter("A1:2", 1, {eImageStream});
    CaptureStdout();
    for (const std::string before : {"nothing", "no address", "recording"})
        for (const bool unknownRadar : {true, false})
        {
            SCOPED_TRACE(before + (unknownRadar ? ", then an unknown radar" : ", then disconnect"));
            auto saver = makeSaver();
            {
                std::optional<tHeldClient> held;
                if (before == "no address")
                    held.emplace();
                EXPECT_TRUE(before == "nothing" || saver->connect("A1:2", 1, false));
                if (before == "recording" && socketsOpen(*saver))
                    send(eImageStream, "last");
                EXPECT_TRUE(before != "recording" || received(*saver, eImageStream, 1));
                EXPECT_EQ(unknownRadar ? saver->connect("nobody", 7, false) : saver->disconnect(),
                          before == "recording" && !unknownRadar);
                EXPECT_EQ(saver->isConnected(), unknownRadar);
                EXPECT_EQ(saver->GetCurrentWriteDataFileName(), "") << "its file is finished";
            }
            changeAddress(unknownRadar ? "127.0.0.2" : "127.0.0.1");
            EXPECT_THAT(groups(*saver), IsEmpty()) << "nothing is recorded";
            EXPECT_FALSE(saver->disconnect() || saver->isConnected());
        }
    std::fflush(stdout);
    EXPECT_THAT(GetCapturedStdout(), HasSubstr("radar[nobody,id = 7] doesn't exist!\n"));
    EXPECT_EQ(dataFilesIn(dir.string()).size(), 4u);
    EXPECT_THAT(payloads(), ElementsAre("last", "last"));
}

TEST_F(tSaverConnectionTest, connectsTwiceBeforeTheFirstAddressIsKnown)
{
    enter("first", 0, {eImageStream});
    enter("second", 0, {eImageStream}, 20);
    auto saver = makeSaver();
    tHeldClient held;
    ASSERT_TRUE(saver->connect("first", 0, false));
    ASSERT_TRUE(saver->connect("second", 0, false));
    EXPECT_EQ(dataFilesIn(dir.string()).size(), 2u);
    held.release();
    ASSERT_TRUE(socketsOpen(*saver));
    EXPECT_EQ(groups(*saver).front().port, port(20));
    EXPECT_TRUE(saver->disconnect());
    changeAddress("127.0.0.2");
    EXPECT_THAT(groups(*saver), IsEmpty());
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

TEST_F(tSaverConnectionTest, refusesControlFromInsideTheObserverAndLetsItCallEverythingElse)
{
    auto saver = connectedSaver();
    tObserver observer([&](auto&&...) {
        EXPECT_FALSE(saver->connect("A1:2", 1, false) || saver->disconnect());
        saver->SocketClear();
        saver->SetRecDataModifyObserver(nullptr);
        saver->ManualWriteRadarData(groupText().c_str(), port(eImageStream), "second", 6);
        saver->ManualWriteData("10.0.0.1", 1, "third", 5, 0);
        EXPECT_EQ(saver->GetGroupCounters(nullptr, 0), 4);
        EXPECT_TRUE(saver->WaitWriteIdle(5000));
    });
    saver->SetRecDataModifyObserver(&observer);
    saver->ManualWriteRadarData(groupText().c_str(), port(eImageStream), "x", 1);
    saver->SetRecDataModifyObserver(&observer);
    send(eImageStream, "first");
    ASSERT_TRUE(received(*saver, eImageStream, 1));
    EXPECT_TRUE(saver->isConnected());
    EXPECT_TRUE(saver->disconnect()) << "the connection was left alone";
    EXPECT_EQ(observer.calls, 2);
    EXPECT_THAT(payloads(), ElementsAre("second", "third", "x", "second", "third", "first"));
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
    changeAddress("127.0.0.2");  // must not reach the destroyed object
    EXPECT_EQ(calls, 1);
    EXPECT_THAT(payloads(), ElementsAre("kept"));
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

TEST_F(tSaverConnectionTest, leavesNoDescriptorAndNoThreadBehind)
{
    connectedSaver()->disconnect();
    const auto descriptors = openDescriptors(), threads = runningThreads();
    for (int i = 0; i < 20; ++i)
        ASSERT_TRUE(connectedSaver()->disconnect());
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_TRUE(waitUntil([&] { return runningThreads() <= threads; })) << runningThreads();
    EXPECT_EQ(dataFilesIn(dir.string()).size(), 21u);
}
