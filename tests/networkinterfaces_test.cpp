// What depends on network interfaces that come, change and go; in a network namespace of the test's own.
#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KestovaUtils/multiradarclient.h"
#include "UdpSocket/interfacewatcher.h"
#include "UdpSocket/udpsocket.h"
#include "support/addresslistener.h"
#include "support/datagramcollector.h"
#include "support/networknamespace.h"
#include "support/waituntil.h"

using testing::ElementsAre;

namespace
{
class tNetworkInterfacesTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!network().why().empty())
            GTEST_SKIP() << network().why();
        ASSERT_TRUE(network().addInterface("radar0"));
    }
    void TearDown() override
    {
        for (const char* name : {"radar0", "radar1"})
            network().ip(std::string("link del ") + name);
    }
    static const tNetworkNamespace& network()
    {
        static const tNetworkNamespace s_network;
        return s_network;
    }
    bool ip(const std::string& arguments) { return network().ip(arguments); }

    bool toldOf(const tAddressListener& listener, std::size_t count)
    {
        return waitUntil([&] { return listener.count() == count; });
    }
    // Made after the namespace, to which its sockets shall belong.
    MultiRadarClient& client() { return *MultiRadarClient::getInstance(); }
};
}  // namespace

TEST_F(tNetworkInterfacesTest, clientTellsAnAddressThatAppearsChangesAndVanishes)
{
    ASSERT_TRUE(client().setLocalInterface("radar0"));
    tAddressListener listener;
    client().addListener(&listener);
    ASSERT_TRUE(toldOf(listener, 1));
    ASSERT_TRUE(ip("addr add 10.77.0.1/24 dev radar0"));
    ASSERT_TRUE(toldOf(listener, 2));
    ASSERT_TRUE(ip("addr del 10.77.0.1/24 dev radar0"));
    ASSERT_TRUE(toldOf(listener, 3));
    ASSERT_TRUE(ip("addr add 10.77.0.2/24 dev radar0"));
    ASSERT_TRUE(toldOf(listener, 4));
    ASSERT_TRUE(ip("link del radar0"));
    ASSERT_TRUE(toldOf(listener, 5));
    EXPECT_THAT(listener.told(), ElementsAre("0.0.0.0", "10.77.0.1", "0.0.0.0", "10.77.0.2", "0.0.0.0"));
}

TEST_F(tNetworkInterfacesTest, clientTellsTheSameAddressAgainOnAnotherInterface)
{
    ASSERT_TRUE(ip("addr add 10.77.0.1/24 dev radar0"));
    ASSERT_TRUE(client().setLocalInterface("radar0"));
    tAddressListener listener;
    client().addListener(&listener);
    ASSERT_TRUE(ip("link del radar0"));
    ASSERT_TRUE(toldOf(listener, 2));
    ASSERT_TRUE(network().addInterface("radar0"));
    ASSERT_TRUE(ip("addr add 10.77.0.1/24 dev radar0"));
    ASSERT_TRUE(toldOf(listener, 3));
    EXPECT_THAT(listener.told(), ElementsAre("10.77.0.1", "0.0.0.0", "10.77.0.1"));
}

TEST_F(tNetworkInterfacesTest, clientFollowsTheInterfaceThatHasTheGivenAddress)
{
    ASSERT_TRUE(ip("addr add 10.77.0.1/24 dev radar0") && ip("addr add 10.78.0.1/24 dev radar0"));
    ASSERT_TRUE(client().setLocalInterface("10.78.0.1"));
    tAddressListener listener;
    client().addListener(&listener);
    ASSERT_TRUE(toldOf(listener, 1));
    ASSERT_TRUE(ip("addr del 10.78.0.1/24 dev radar0"));
    ASSERT_TRUE(toldOf(listener, 2));
    EXPECT_THAT(listener.told(), ElementsAre("10.78.0.1", "10.77.0.1"));
}

TEST_F(tNetworkInterfacesTest, clientTellsAStrangeAddressAgainWhenAnInterfaceTakesIt)
{
    ASSERT_TRUE(client().setLocalInterface("10.79.0.1"));
    tAddressListener listener;
    client().addListener(&listener);
    ASSERT_TRUE(toldOf(listener, 1));
    ASSERT_TRUE(ip("addr add 10.79.0.1/24 dev radar0"));
    ASSERT_TRUE(toldOf(listener, 2));
    ASSERT_TRUE(ip("addr del 10.79.0.1/24 dev radar0"));
    ASSERT_TRUE(toldOf(listener, 3));
    EXPECT_THAT(listener.told(), ElementsAre("10.79.0.1", "10.79.0.1", "0.0.0.0"));
}

TEST_F(tNetworkInterfacesTest, watcherFollowsTheDefaultRouteAndElseTheLoopback)
{
    std::mutex mutex;
    std::vector<std::string> told;
    const auto isTold = [&](const std::vector<std::string>& wanted) {
        return waitUntil([&] {
            const std::lock_guard<std::mutex> guard(mutex);
            return told == wanted;
        });
    };
    net::tInterfaceWatcher watcher;
    ASSERT_TRUE(watcher.start([&](std::uint32_t localIp) {
        const std::lock_guard<std::mutex> guard(mutex);
        told.push_back(net::transAddr(localIp));
    }));
    EXPECT_TRUE(isTold({"127.0.0.1"}));
    ASSERT_TRUE(network().addInterface("radar1") && ip("addr add 10.77.0.1/24 dev radar0") &&
                ip("addr add 10.78.0.1/24 dev radar1"));
    ASSERT_TRUE(ip("route add default dev radar0 metric 200"));
    EXPECT_TRUE(isTold({"127.0.0.1", "10.77.0.1"}));
    ASSERT_TRUE(ip("route add default dev radar1 metric 100"));
    EXPECT_TRUE(isTold({"127.0.0.1", "10.77.0.1", "10.78.0.1"}));
    ASSERT_TRUE(ip("route del default dev radar0") && ip("route del default dev radar1"));
    EXPECT_TRUE(isTold({"127.0.0.1", "10.77.0.1", "10.78.0.1", "127.0.0.1"}));
}

TEST_F(tNetworkInterfacesTest, receiverKeepsTheSameGroupOnOtherInterfacesOut)
{
    ASSERT_TRUE(network().addInterface("radar1") && ip("addr add 10.77.0.1/24 dev radar0") &&
                ip("addr add 10.78.0.1/24 dev radar1"));
    const NetAddress group = testGroup();
    const std::uint32_t first = net::transAddr("10.77.0.1");
    const std::uint32_t second = net::transAddr("10.78.0.1");
    tDatagramCollector onFirst;
    tDatagramCollector onSecond;
    const net::UdpReceiver firstReceiver(&onFirst, first, group, 0);
    const net::UdpReceiver secondReceiver(&onSecond, second, group, 0);
    ASSERT_TRUE(net::UdpSender(group, second, 0).sendData("second", 6));
    ASSERT_TRUE(net::UdpSender(group, first, 0).sendData("first", 5));
    ASSERT_TRUE(waitUntil([&] { return onFirst.count() == 1 && onSecond.count() == 1; }));
    EXPECT_EQ(onFirst.all().front().payload, "first");
    EXPECT_EQ(onSecond.all().front().from, "10.78.0.1");
}

// Not to be tested on the loopback interface, which returns whatever is sent.
TEST_F(tNetworkInterfacesTest, senderIsHeardHereUnlessItsLoopIsOff)
{
    ASSERT_TRUE(ip("addr add 10.77.0.1/24 dev radar0"));
    const NetAddress group = testGroup();
    const std::uint32_t localIp = net::transAddr("10.77.0.1");
    tDatagramCollector collector;
    const net::UdpReceiver receiver(&collector, localIp, group, 0);
    net::UdpSender sender(group, localIp, 0);
    EXPECT_TRUE(sender.sendData("1", 1));
    sender.setMulticastLoop(false);
    EXPECT_TRUE(sender.sendData("2", 1));
    sender.setMulticastLoop(true);
    EXPECT_TRUE(sender.sendData("3", 1));
    ASSERT_TRUE(waitUntil([&] { return collector.count() == 2; }));
    EXPECT_EQ(collector.all()[0].payload + collector.all()[1].payload, "13");
}
