// A recorder with a network of its own: a namespace with nothing but loopback and nobody else on the service group.
#include <arpa/inet.h>
#include <chrono>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "support/saverfixture.h"

using namespace Kestova;
using namespace std::chrono_literals;

namespace
{
bool configureLoopback(unsigned long what, ifreq request)
{
    const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    std::string("lo").copy(request.ifr_name, IFNAMSIZ - 1);
    const bool done = ::ioctl(socket, what, &request) == 0;
    ::close(socket);
    return done;
}

// "0.0.0.0" takes the address away.
bool setLoopbackAddress(const char* dotted)
{
    ifreq request{};
    auto& address = reinterpret_cast<sockaddr_in&>(request.ifr_addr);
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = ::inet_addr(dotted);
    return configureLoopback(SIOCSIFADDR, request);
}

bool bringLoopbackUp()
{
    ifreq request{};
    request.ifr_flags = IFF_UP | IFF_RUNNING;
    return configureLoopback(SIOCSIFFLAGS, request);
}
}  // namespace

class tSaverAloneTest : public tSaverFixture
{
protected:
    // Once, before anything starts a thread: threads keep the namespace they were started in.
    static void SetUpTestSuite() { s_alone = s_alone || (::unshare(CLONE_NEWNET) == 0 && bringLoopbackUp()); }
    void SetUp() override
    {
        if (!s_alone)
            GTEST_SKIP() << "no right to make a network namespace";
        ASSERT_TRUE(setLoopbackAddress("127.0.0.1"));
        ASSERT_TRUE(client.setLocalInterface("lo"));
    }
    static tGroupCounters service(const tRadarDataSaver& saver) { return groups(saver).back(); }

    static inline bool s_alone = false;
};

TEST_F(tSaverAloneTest, closesItsSocketsWithoutAnAddressAndOpensThemWithOne)
{
    auto saver = connectedSaver();
    ASSERT_TRUE(setLoopbackAddress("0.0.0.0"));
    EXPECT_TRUE(waitUntil([&] { return groups(*saver).empty(); }));
    EXPECT_TRUE(saver->isConnected());
    ASSERT_TRUE(setLoopbackAddress("127.0.0.1"));
    EXPECT_TRUE(socketsOpen(*saver));
    ASSERT_TRUE(setLoopbackAddress("0.0.0.0"));
    ASSERT_TRUE(waitUntil([&] { return groups(*saver).empty(); }));
    EXPECT_FALSE(saver->disconnect()) << "no sockets were open";
    EXPECT_EQ(saver->GetCurrentWriteDataFileName(), "");
}

TEST_F(tSaverAloneTest, asksASilentServiceAndRecordsWhatItHears)
{
    auto idle = connectedSaver();
    ASSERT_TRUE(idle->disconnect());  // whoever is not connected asks nobody
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
