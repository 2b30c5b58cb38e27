// A recorder with a network of its own: a namespace with nothing but loopback and no other user of the service group.
#include "support/ownnamespace.h"
#include "support/saverfixture.h"

using namespace Kestova;
using namespace std::chrono_literals;

class tSaverAloneTest : public tSaverFixture
{
protected:
    // Once, before anything starts a thread: threads keep the namespace they were started in.
    static void SetUpTestSuite() { s_network = std::make_unique<tNetworkNamespace>(); }
    void SetUp() override
    {
        if (!s_network->why().empty())
            GTEST_SKIP() << s_network->why();
        ASSERT_TRUE(giveAddress() && client.setLocalInterface("lo"));
    }
    static bool giveAddress() { return s_network->ip("addr replace 127.0.0.1/8 dev lo"); }
    static bool takeAddress() { return s_network->ip("addr flush dev lo"); }
    static tGroupCounters service(const tRadarDataSaver& saver) { return groups(saver).back(); }

    static inline std::unique_ptr<tNetworkNamespace> s_network;
};

TEST_F(tSaverAloneTest, closesItsSocketsWithoutAnAddressAndOpensThemWithOne)
{
    auto saver = connectedSaver();
    ASSERT_TRUE(takeAddress());
    EXPECT_TRUE(waitUntil([&] { return groups(*saver).empty(); }));
    EXPECT_TRUE(saver->isConnected());
    ASSERT_TRUE(giveAddress());
    EXPECT_TRUE(socketsOpen(*saver));
    ASSERT_TRUE(takeAddress());
    ASSERT_TRUE(waitUntil([&] { return groups(*saver).empty(); }));
    EXPECT_FALSE(saver->disconnect()) << "no sockets were open";
    EXPECT_EQ(saver->GetCurrentWriteDataFileName(), "");
}

TEST_F(tSaverAloneTest, asksASilentServiceAndRecordsWhatItHears)
{
    auto idle = connectedSaver();
    ASSERT_TRUE(idle->disconnect());  // a recorder that is not connected sends no query
    auto saver = connectedSaver();
    net::UdpSender multiRadar({net::transAddr("236.6.7.5"), net::HtoNs(6878)}, net::transAddr("127.0.0.1"), 0);
    const auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(multiRadar.sendData("hello", 5));
    ASSERT_TRUE(waitUntil([&] { return service(*saver).datagrams == 2; }, 15s));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 6s) << "the sign of life puts the query off";
    saver->disconnect();
    const auto packages = recordedPackages(dir.string());
    ASSERT_EQ(packages.size(), 2u);
    EXPECT_EQ(packages[0].payload, "hello");
    EXPECT_EQ(packages[1].payload, "\x01\xB1");
    for (const tRecordedPackage& package : packages)
        EXPECT_EQ(asText(package.msgInfo), "0,0,3,255,0");
}
