// The recorder's rooms that run threads: service query, joined groups, observer gate.
#include <future>
#include <gtest/gtest.h>
#include <unistd.h>

#include "KestovaStorage/internal/modifygate.h"
#include "KestovaStorage/internal/receivergroups.h"
#include "KestovaStorage/internal/servicequery.h"
#include "KestovaStorage/radardatasaver.h"
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

struct tHeldObserver : iRadarRecDataModifyObserver
{
    void UpdateRecDataModify(const tUdpMsgInfo&, const char*, int, char*, int) override
    {
        ++calls;
        entered = true;
        if (during)
            during();
        waitUntil([this] { return released.load(); });
        ended = true;
    }
    std::function<void()> during;
    std::atomic<bool> entered{false}, released{false}, ended{false};
    std::atomic<int> calls{0};
};

void pass(tModifyGate& gate)
{
    char byte = 0;
    gate.pass(tUdpMsgInfo{}, "239.0.0.1", 1, &byte, 1);
}
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

TEST(tModifyGateTest, setWaitsForTheCallUnderWay)
{
    tModifyGate gate;
    tHeldObserver observer;
    gate.set(&observer);
    auto call = std::async(std::launch::async, [&] { pass(gate); });
    ASSERT_TRUE(waitUntil([&] { return observer.entered.load(); }));
    auto removal = std::async(std::launch::async, [&] {
        gate.set(nullptr);
        return observer.ended.load();
    });
    auto second = std::async(std::launch::async, [&] {
        waitUntil([&] { return !gate.open(); });
        gate.set(nullptr);
        return observer.ended.load();
    });
    ASSERT_TRUE(waitUntil([&] { return !gate.open(); }));
    EXPECT_EQ(removal.wait_for(50ms), std::future_status::timeout);
    EXPECT_EQ(second.wait_for(0ms), std::future_status::timeout);
    observer.released = true;
    EXPECT_TRUE(removal.get());
    EXPECT_TRUE(second.get());
}

TEST(tModifyGateTest, setFromInsideACallDoesNotWait)
{
    tModifyGate gate;
    tHeldObserver observer;
    bool inside = false;
    observer.released = true;
    observer.during = [&] {
        inside = gate.inside();
        gate.set(nullptr);
    };
    gate.set(&observer);
    pass(gate);
    pass(gate);
    EXPECT_EQ(observer.calls, 1);
    EXPECT_TRUE(inside);
    EXPECT_FALSE(gate.inside());
}

TEST(tModifyGateTest, knowsItsOwnCallsFromThoseOfAnotherGate)
{
    tModifyGate outer;
    tModifyGate inner;
    tHeldObserver first;
    tHeldObserver second;
    first.released = second.released = true;
    bool seen[3] = {};
    first.during = [&] {
        seen[0] = inner.inside();
        pass(inner);
        seen[1] = outer.inside();
    };
    second.during = [&] { seen[2] = outer.inside() && inner.inside(); };
    outer.set(&first);
    inner.set(&second);
    pass(outer);
    EXPECT_FALSE(seen[0]);
    EXPECT_TRUE(seen[1] && seen[2]);
}
