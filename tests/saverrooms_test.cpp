// The recorder's rooms that run threads: service query and joined groups.
#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <unistd.h>

#include "KestovaStorage/internal/receivergroups.h"
#include "KestovaStorage/internal/servicequery.h"
#include "support/waituntil.h"

using namespace Kestova;
using namespace std::chrono_literals;

namespace
{
// A group of this process and test program alone.
NetAddress ownGroup(int number)
{
    const auto pid = static_cast<unsigned>(::getpid());
    const std::string text = "239." + std::to_string(128 + (pid >> 16 & 63)) + "." + std::to_string(pid >> 8 & 255) +
                             "." + std::to_string(pid & 255);
    return {net::transAddr(text.c_str()), net::HtoNs(static_cast<std::uint16_t>(41000 + number))};
}

const std::uint32_t cLoopback = net::transAddr("127.0.0.1");

struct tCountingListener : net::iUdpDataListener
{
    void OnUdpGroupDataReceived(const char*, int, const char*, int, const char* data, int len) override
    {
        last.assign(data, static_cast<std::size_t>(len));
        if (during)
            during();
        ++count;
    }
    std::string last;  // written by one receive thread, read after count
    std::function<void()> during;
    std::atomic<int> count{0};
};
}  // namespace

TEST(tServiceQueryTest, asksASilentServiceEveryPeriod)
{
    tCountingListener service;
    auto receiver = std::make_unique<net::UdpReceiver>(&service, cLoopback, ownGroup(0), 1024);
    tServiceQuery query({20ms, 40ms});
    query.setSender(std::make_unique<net::UdpSender>(ownGroup(0), cLoopback, 0));
    ASSERT_TRUE(waitUntil([&] { return service.count >= 3; }));
    receiver.reset();
    EXPECT_EQ(service.last, "\x01\xB1");
}

TEST(tServiceQueryTest, keepsQuietWhileTheServiceIsHeard)
{
    tServiceQuery query({1h, 6s});
    query.setSender(std::make_unique<net::UdpSender>(ownGroup(1), cLoopback, 0));
    query.heard();
    const auto now = std::chrono::steady_clock::now();
    EXPECT_FALSE(query.ask(now + 5s));
    EXPECT_TRUE(query.ask(now + 6s));
    query.setSender(nullptr);
    EXPECT_FALSE(query.ask(now + 6s)) << "there is no sender";
}

TEST(tServiceQueryTest, endsAtOnceHoweverLongItsPeriod)
{
    const auto before = std::chrono::steady_clock::now();
    {
        const tServiceQuery query({1h, 1h});
    }
    EXPECT_LT(std::chrono::steady_clock::now() - before, 1s);
}

TEST(tReceiverGroupsTest, findsAGroupFromTheFirstDatagramToTheLast)
{
    tCountingListener listener;
    tReceiverGroups groups(&listener);
    std::atomic<bool> known{true};
    std::promise<void> inCallback;
    tUdpMsgInfo info{};
    listener.during = [&, first = true]() mutable {
        if (std::exchange(first, false))
        {
            inCallback.set_value();
            waitUntil([&] { return groups.states().empty(); });  // it is being closed
        }
        known = known && groups.find(ownGroup(2), info);
    };
    groups.open({{ownGroup(2), {1, 2, 4, 7, 0}, 1024}}, cLoopback);
    ASSERT_TRUE(groups.states().at(0).joined);
    net::UdpSender(ownGroup(2), cLoopback, 0).sendData("x", 1);
    inCallback.get_future().wait();
    EXPECT_TRUE(groups.close());
    EXPECT_EQ(listener.count, 1);
    EXPECT_TRUE(known);
    EXPECT_EQ(info.rwType, 7);
    EXPECT_FALSE(groups.find(ownGroup(2), info));
    EXPECT_FALSE(groups.close());
}

TEST(tReceiverGroupsTest, tellsOfAGroupThatCannotBeJoined)
{
    tCountingListener listener;
    tReceiverGroups groups(&listener);
    groups.open({{ownGroup(3), {}, 1024}}, net::transAddr("192.0.2.1"));  // no interface has this address
    ASSERT_EQ(groups.states().size(), 1u);
    EXPECT_FALSE(groups.states()[0].joined);
}
