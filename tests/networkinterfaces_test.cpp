// What depends on network interfaces that come, change and go, and on a network with nobody else; in a network
// namespace of the test's own.
#include "UdpSocket/interfacewatcher.h"
#include "support/addresslistener.h"
#include "support/ownnamespace.h"
#include "support/saverfixture.h"

using namespace Kestova;
using namespace std::chrono_literals;

namespace
{
// Entered by the first test, before anything starts a thread: threads keep the namespace that they were started in.
const tNetworkNamespace& network()
{
    static const tNetworkNamespace s_network;
    return s_network;
}
bool ip(const std::string& arguments)
{
    return network().ip(arguments);
}

class tNetworkInterfacesTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!network().why().empty())
            GTEST_SKIP() << network().why();
        renew();
    }
    void renew()
    {
        for (const char* name : {"radar0", "radar1"})
            ip(std::string("link del ") + name);
        ASSERT_TRUE(network().addInterface("radar0"));
    }

    // Made after the namespace, to which its sockets shall belong.
    MultiRadarClient& client() { return *MultiRadarClient::getInstance(); }
};

class tSaverAloneTest : public tSaverFixture
{
protected:
    static void SetUpTestSuite() { network(); }  // before the fixture has the client
    void SetUp() override
    {
        if (!network().why().empty())
            GTEST_SKIP() << network().why();
        ASSERT_TRUE(giveAddress() && client.setLocalInterface("lo"));
    }
    static bool giveAddress() { return ip("addr replace 127.0.0.1/8 dev lo"); }
    static bool takeAddress() { return ip("addr flush dev lo"); }
    static bool closed(const tRadarDataSaver& saver)
    {
        return waitUntil([&] { return groups(saver).empty(); });
    }
};
}  // namespace

TEST_F(tNetworkInterfacesTest, clientTellsEveryChangeOfTheChosenInterfaceAndItsAddress)
{
    using tTexts = std::vector<std::string>;
    const std::string add1 = "addr add 10.77.0.1/24 dev radar0", add2 = "addr add 10.77.0.2/24 dev radar0";
    const std::string del1 = "addr del 10.77.0.1/24 dev radar0", del2 = "addr del 10.77.0.2/24 dev radar0";
    const std::string none = "0.0.0.0", one = "10.77.0.1", two = "10.77.0.2", gone = "link del radar0";
    // Commands before, what is chosen, changes, and what is reported, the first of it before the changes.
    const std::tuple<std::string, std::string, tTexts, tTexts> cases[] = {
        {"link show", "radar0", {add1, del1, add2, gone}, {none, one, none, two, none}},
        {add1, "radar0", {gone, "new radar0", add1}, {one, none, one}},  // the same on another interface
        {add1 + " && ip " + add2, two, {del2}, {two, one}},
        {"link show", two, {add2, del2}, {two, two, none}}};  // strange at first
    for (const auto& [before, chosen, changes, expected] : cases)
    {
        SCOPED_TRACE(testing::PrintToString(expected));
        ASSERT_TRUE(ip(before) && client().setLocalInterface(chosen));
        tAddressListener listener;
        client().addListener(&listener);
        std::size_t told = 0;
        ASSERT_TRUE(waitUntil([&] { return listener.count() == told + 1; }));
        for (const std::string& change : changes)
        {
            const bool isNew = change == "new radar0";  // has no address yet, so nothing is told
            ASSERT_TRUE(isNew ? network().addInterface("radar0") : ip(change)) << change;
            told += isNew ? 0 : 1;
            ASSERT_TRUE(waitUntil([&] { return listener.count() == told + 1; })) << change;
        }
        EXPECT_EQ(listener.all(), expected);
        renew();
    }
}

TEST_F(tNetworkInterfacesTest, watcherFollowsTheDefaultRouteAndElseTheLoopback)
{
    tAddressListener told;  // here not of the client
    net::tInterfaceWatcher watcher;
    ASSERT_TRUE(watcher.start([&](std::uint32_t localIp) { told.OnLocalIpChanged(localIp); }));
    const auto isTold = [&](const std::vector<std::string>& wanted) {
        return waitUntil([&] { return told.all() == wanted; });
    };
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
    const std::uint32_t first = net::transAddr("10.77.0.1"), second = net::transAddr("10.78.0.1");
    tDatagramCollector onFirst, onSecond;
    const net::UdpReceiver firstReceiver(&onFirst, first, group, 0);
    const net::UdpReceiver secondReceiver(&onSecond, second, group, 0);
    ASSERT_TRUE(net::UdpSender(group, second, 0).sendData("second", 6));
    ASSERT_TRUE(net::UdpSender(group, first, 0).sendData("first", 5));
    ASSERT_TRUE(waitUntil([&] { return onFirst.count() == 1 && onSecond.count() == 1; }));
    EXPECT_EQ(onFirst.all().front().payload, "first");
    EXPECT_TRUE(onSecond.all().front().from.starts_with("10.78.0.1:"));
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
    for (const char* digit : {"1", "2", "3"})
    {
        sender.setMulticastLoop(*digit != '2');
        EXPECT_TRUE(sender.sendData(digit, 1));
    }
    ASSERT_TRUE(waitUntil([&] { return collector.count() == 2; }));
    EXPECT_EQ(collector.all()[0].payload + collector.all()[1].payload, "13");
}

TEST_F(tSaverAloneTest, closesItsSocketsWithoutAnAddressAndOpensThoseOfTheLastRadarWithOne)
{
    enter("next", 0, {eImageStream}, 20);
    auto saver = connectedSaver(), other = connectedSaver();
    ASSERT_TRUE(takeAddress());
    EXPECT_TRUE(closed(*saver) && saver->isConnected() && closed(*other));
    EXPECT_FALSE(other->disconnect()) << "no sockets were open";
    EXPECT_EQ(other->GetCurrentWriteDataFileName(), "");
    EXPECT_TRUE(saver->connect("A1:2", 1, false) && saver->connect("next", 0, false));
    ASSERT_TRUE(giveAddress());
    ASSERT_TRUE(socketsOpen(*saver));
    EXPECT_EQ(groups(*saver).front().port, port(20));
    EXPECT_TRUE(groups(*other).empty());
    EXPECT_EQ(dataFilesIn(dir.string()).size(), 4u);
}

TEST_F(tSaverAloneTest, asksASilentServiceAndRecordsWhatItHears)
{
    auto idle = connectedSaver();
    ASSERT_TRUE(idle->disconnect());  // a recorder that is not connected sends no query
    auto saver = connectedSaver();
    net::UdpSender multiRadar({net::transAddr("236.6.7.5"), net::HtoNs(6878)}, loopbackIp(), 0);
    const auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(multiRadar.sendData("hello", 5));
    ASSERT_TRUE(waitUntil([&] { return groups(*saver).back().datagrams == 2; }, 15s));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 6s) << "the sign of life puts the query off";
    saver->disconnect();
    std::string recorded;
    for (const tRecordedPackage& package : recordedPackages(dir.string()))
        recorded += asText(package.msgInfo) + " " + package.payload + " ";
    EXPECT_EQ(recorded, "0,0,3,255,0 hello 0,0,3,255,0 \x01\xB1 ");
}
