#include "UdpSocket/udpsocket.h"

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <set>
#include <thread>

#include "support/addresstext.h"
#include "support/datagramcollector.h"
#include "support/waituntil.h"

using namespace std::chrono_literals;
using testing::HasSubstr;

namespace
{
// A listener that does what the test says at every datagram.
class tCallingListener : public net::iUdpDataListener
{
public:
    explicit tCallingListener(std::function<void(char*, int)> call) : m_call(std::move(call)) {}
    void OnUdpGroupDataReceived(const char*, int, const char*, int, const char* data, int len) override
    {
        m_call(const_cast<char*>(data), len);  // the buffer may be changed in place
    }

private:
    std::function<void(char*, int)> m_call;
};

class tUdpSocketTest : public testing::Test
{
protected:
    std::unique_ptr<net::UdpReceiver> receive(net::iUdpDataListener& listener, const NetAddress& group)
    {
        return std::make_unique<net::UdpReceiver>(&listener, loopbackIp(), group, 2048);
    }
    void send(const NetAddress& group, const std::string& payload)
    {
        net::UdpSender sender(group, loopbackIp(), 0);
        ASSERT_TRUE(sender.sendData(payload.data(), static_cast<int>(payload.size())));
    }

    const NetAddress m_group = testGroup();
    tDatagramCollector m_collector;
};

using tUdpReceiverTest = tUdpSocketTest;
using tUdpSenderTest = tUdpSocketTest;

std::ptrdiff_t entriesOf(const char* folder)
{
    return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
}

NetAddress unicast(const NetAddress& group)
{
    return {loopbackIp(), group.port};
}
}  // namespace

TEST(tTransAddrTest, keepsTheBytesInTheOrderTheyAreWritten)
{
    const std::uint32_t ip = net::transAddr("239.17.0.1");
    unsigned char bytes[4];
    std::memcpy(bytes, &ip, sizeof bytes);
    EXPECT_THAT(bytes, testing::ElementsAre(239, 17, 0, 1));
    EXPECT_EQ(net::transAddr(ip), "239.17.0.1");
    EXPECT_EQ(net::transAddr(std::uint32_t{0}), "0.0.0.0");
    EXPECT_EQ(net::NtoHs(net::HtoNs(6001)), 6001);
}

TEST(tTransAddrTest, givesZeroForWhatIsNoAddress)
{
    for (const char* text : {"", "1.2.3", "1.2.3.4.5", "256.1.1.1", "1.2.3.4 ", " 1.2.3.4", "01.2.3.4", "0x1.2.3.4",
                             "localhost", "1.2.3.4:5", "-1.2.3.4", "0.0.0.0"})
    {
        SCOPED_TRACE(text);
        EXPECT_EQ(net::transAddr(text), 0U);
    }
    EXPECT_EQ(net::transAddr(static_cast<const char*>(nullptr)), 0U);
}

TEST_F(tUdpReceiverTest, deliversPayloadAndAddresses)
{
    const auto receiver = receive(m_collector, m_group);
    ASSERT_TRUE(receiver->valid());
    send(m_group, "spoke");
    ASSERT_TRUE(waitUntil([&] { return m_collector.count() == 1; }));
    const tReceivedDatagram got = m_collector.all().front();
    EXPECT_EQ(got.payload, "spoke");
    EXPECT_EQ(got.from, "127.0.0.1");
    EXPECT_GT(got.fromPort, 0);
    EXPECT_EQ(got.group + ":" + std::to_string(got.groupPort), addressText(m_group));
}

TEST_F(tUdpReceiverTest, keepsOtherGroupsOnThePortOut)
{
    const NetAddress other{net::transAddr("239.255.7.7"), m_group.port};
    tDatagramCollector others;
    const auto receiver = receive(m_collector, m_group);
    const auto otherReceiver = receive(others, other);
    send(other, "not ours");
    send(unicast(m_group), "to this machine, not to the group");
    send(m_group, "ours");
    ASSERT_TRUE(waitUntil([&] { return m_collector.count() == 1 && others.count() == 1; }));
    EXPECT_EQ(m_collector.all().front().payload, "ours");
    EXPECT_EQ(others.all().front().payload, "not ours");
}

TEST_F(tUdpReceiverTest, sharesAGroupWithAnotherReceiver)
{
    tDatagramCollector second;
    const auto receiver = receive(m_collector, m_group);
    const auto secondReceiver = receive(second, m_group);
    send(m_group, "both");
    EXPECT_TRUE(waitUntil([&] { return m_collector.count() == 1 && second.count() == 1; }));
}

TEST_F(tUdpReceiverTest, bindsAUnicastAddress)
{
    const auto receiver = receive(m_collector, unicast(m_group));
    ASSERT_TRUE(receiver->valid());
    send(unicast(m_group), "direct");
    ASSERT_TRUE(waitUntil([&] { return m_collector.count() == 1; }));
    EXPECT_EQ(m_collector.all().front().group, "127.0.0.1");
}

TEST_F(tUdpReceiverTest, goesOnBehindEmptyDatagrams)
{
    const auto receiver = receive(m_collector, m_group);
    send(m_group, "");
    send(m_group, "");
    send(m_group, "after");
    ASSERT_TRUE(waitUntil([&] { return m_collector.count() == 3; }));
    EXPECT_EQ(m_collector.all()[0].payload, "");
    EXPECT_EQ(m_collector.all()[2].payload, "after");
    EXPECT_EQ(receiver->counters().datagrams, 3U);
    EXPECT_EQ(receiver->counters().bytes, 5U);
}

TEST_F(tUdpReceiverTest, neverTruncatesOrMixesTheLargestDatagrams)
{
    const auto receiver = receive(m_collector, m_group);
    const std::string payload(65507, 'x');
    for (char mark = 'a'; mark <= 'h'; ++mark)
        send(m_group, mark + payload.substr(2) + mark);
    ASSERT_TRUE(waitUntil([&] { return m_collector.count() == 8; }));
    for (std::size_t i = 0; i < 8; ++i)
    {
        const std::string got = m_collector.all()[i].payload;
        ASSERT_EQ(got.size(), 65507U);
        EXPECT_EQ(got.front(), static_cast<char>('a' + i));
        EXPECT_EQ(got.back(), got.front());
    }
}

TEST_F(tUdpReceiverTest, handsOverAWritableBuffer)
{
    std::string seen;
    std::atomic<int> calls{0};
    tCallingListener listener([&](char* data, int len) {
        std::memset(data, '#', static_cast<std::size_t>(len));
        seen.assign(data, static_cast<std::size_t>(len));
        ++calls;
    });
    const auto receiver = receive(listener, m_group);
    send(m_group, "edit");
    ASSERT_TRUE(waitUntil([&] { return calls == 1; }));
    EXPECT_EQ(seen, "####");
}

// The listener is held in its first call while more is sent than any buffer takes; the last datagrams are among the
// lost ones, so no later datagram can tell of them.
TEST_F(tUdpReceiverTest, countsExactlyWhatTheKernelDrops)
{
    std::atomic<bool> go{false};
    std::atomic<std::uint64_t> calls{0};
    tCallingListener listener([&](char*, int) {
        EXPECT_TRUE(waitUntil([&] { return go.load(); }, 60s));
        ++calls;
    });
    const auto receiver = receive(listener, m_group);
    net::UdpSender sender(m_group, loopbackIp(), 0);
    const std::string payload(8000, 'x');
    std::uint64_t sent = 0;
    while (receiver->counters().kernelDropped < 100 && sent < 100'000)
        sent += sender.sendData(payload.data(), 8000) ? 1 : 0;
    EXPECT_EQ(receiver->counters().kernelDropped, 100U);
    go = true;
    EXPECT_TRUE(waitUntil([&] { return calls + 100 >= sent; }, 20s));
    EXPECT_EQ(calls + receiver->counters().kernelDropped, sent);
    send(m_group, "told by datagram too");
    EXPECT_TRUE(waitUntil([&] { return calls + 100 == sent + 1; }));
    EXPECT_EQ(receiver->counters().kernelDropped, 100U);
}

TEST_F(tUdpReceiverTest, asksForAtLeastFourMegabytesOfBuffer)
{
    long systemLimit = 0;
    std::ifstream("/proc/sys/net/core/rmem_max") >> systemLimit;
    for (const int wanted : {0, -5, 2048, 6 * 1024 * 1024})
    {
        SCOPED_TRACE(wanted);
        const net::UdpReceiver receiver(&m_collector, loopbackIp(), m_group, wanted);
        ASSERT_TRUE(receiver.valid());
        EXPECT_GE(receiver.receiveBufferSize(), std::min<long>(systemLimit, std::max(wanted, 4 * 1024 * 1024)));
    }
}

TEST_F(tUdpReceiverTest, endsAtOnceUnderAFloodAndIsSilentAfterwards)
{
    std::atomic<bool> flooding{true};
    std::atomic<bool> destroyed{false};
    std::atomic<int> calls{0};
    std::atomic<int> late{0};
    tCallingListener listener([&](char*, int) { ++(destroyed ? late : calls); });
    std::thread flood([&] {
        net::UdpSender sender(m_group, loopbackIp(), 0);
        while (flooding)
            sender.sendData("flood", 5);
    });
    for (int round = 0; round < 10; ++round)
    {
        destroyed = false;
        const int before = calls;
        auto receiver = receive(listener, m_group);
        EXPECT_TRUE(waitUntil([&] { return calls > before + 200; }));
        const auto start = std::chrono::steady_clock::now();
        receiver.reset();
        destroyed = true;
        EXPECT_LT(std::chrono::steady_clock::now() - start, 500ms);
    }
    flooding = false;
    flood.join();
    EXPECT_EQ(late, 0);
}

// Sixty datagrams lie received in one batch; a listener that needs 20 ms for each must not hold the destructor up for
// more than the one that it is at.
TEST_F(tUdpReceiverTest, deliversNothingMoreOfABatchOnceItEnds)
{
    std::atomic<int> calls{0};
    std::atomic<bool> filled{false};
    tCallingListener listener([&](char*, int) {
        ++calls;
        EXPECT_TRUE(waitUntil([&] { return filled.load(); }));
        std::this_thread::sleep_for(20ms);  // the listener's own work
    });
    auto receiver = receive(listener, m_group);
    for (int i = 0; i < 61; ++i)
        send(m_group, "one of many");
    filled = true;
    ASSERT_TRUE(waitUntil([&] { return calls >= 3; }));
    receiver.reset();
    const int atEnd = calls;
    EXPECT_LT(atEnd, 20);
}

TEST_F(tUdpReceiverTest, mayBeDestroyedFromInsideItsOwnCall)
{
    std::atomic<int> calls{0};
    std::atomic<net::UdpReceiver*> receiver{nullptr};
    std::thread([] {}).join();  // a sanitizer starts a thread of its own beside the first one
    const auto threadsBefore = entriesOf("/proc/self/task");
    tCallingListener listener([&](char*, int) {
        EXPECT_TRUE(waitUntil([&] { return receiver != nullptr; }));
        delete receiver.load();
        ++calls;
    });
    receiver = receive(listener, m_group).release();
    for (int i = 0; i < 5; ++i)
        send(m_group, "last");
    EXPECT_TRUE(waitUntil([&] { return entriesOf("/proc/self/task") == threadsBefore; }));
    EXPECT_EQ(calls, 1);
}

TEST_F(tUdpReceiverTest, saysOnceWhichGroupCannotBeJoinedWhereAndWhy)
{
    testing::internal::CaptureStderr();
    {
        const net::UdpReceiver receiver(&m_collector, net::transAddr("203.0.113.77"), m_group, 2048);
        EXPECT_FALSE(receiver.valid());
        send(m_group, "unheard");
        EXPECT_EQ(receiver.counters().datagrams, 0U);
        EXPECT_EQ(receiver.receiveBufferSize(), 0);
    }
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1);
    EXPECT_THAT(said, HasSubstr(addressText(m_group)));
    EXPECT_THAT(said, HasSubstr("on 203.0.113.77: No such device"));
}

TEST_F(tUdpReceiverTest, leavesNoDescriptorAndNoThreadBehind)
{
    receive(m_collector, m_group);
    const auto descriptors = entriesOf("/proc/self/fd");
    const auto threads = entriesOf("/proc/self/task");
    for (int i = 0; i < 1000; ++i)
        ASSERT_TRUE(receive(m_collector, m_group)->valid());
    EXPECT_EQ(entriesOf("/proc/self/fd"), descriptors);
    EXPECT_EQ(entriesOf("/proc/self/task"), threads);
}

TEST_F(tUdpSenderTest, sendsFromTheGivenPort)
{
    const auto receiver = receive(m_collector, m_group);
    const int port = net::NtoHs(testGroup().port);
    net::UdpSender sender(m_group, loopbackIp(), port);
    ASSERT_TRUE(sender.sendData("x", 1));
    ASSERT_TRUE(waitUntil([&] { return m_collector.count() == 1; }));
    EXPECT_EQ(m_collector.all().front().fromPort, port);
}

TEST_F(tUdpSenderTest, reportsItsFirstRefusalOnly)
{
    net::UdpSender sender(m_group, loopbackIp(), 0);
    const std::string tooLong(65508, 'x');
    testing::internal::CaptureStderr();
    EXPECT_FALSE(sender.sendData(tooLong.data(), 65508));
    EXPECT_FALSE(sender.sendData(tooLong.data(), 65508));
    EXPECT_FALSE(sender.sendData("x", -1));
    EXPECT_FALSE(sender.sendData(nullptr, 1));
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1);
    EXPECT_THAT(said, HasSubstr("Message too long"));
    EXPECT_TRUE(sender.sendData("x", 1));
}

TEST_F(tUdpSenderTest, withoutASocketRefusesSilentlyAfterOneLine)
{
    testing::internal::CaptureStderr();
    net::UdpSender sender(m_group, net::transAddr("203.0.113.77"), 0);
    EXPECT_FALSE(sender.sendData("x", 1));
    sender.setMulticastLoop(true);
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1);
    EXPECT_THAT(said, HasSubstr("203.0.113.77"));
}

TEST_F(tUdpSenderTest, goesOnWhereNobodyListens)
{
    net::UdpSender sender(unicast(m_group), loopbackIp(), 0);
    for (int i = 0; i < 20; ++i)
        EXPECT_TRUE(sender.sendData("anyone?", 7));
}

TEST_F(tUdpSenderTest, sendsABatchInOrderAndLeavesRefusedOnesOut)
{
    const auto receiver = receive(m_collector, m_group);
    net::UdpSender sender(m_group, loopbackIp(), 0);
    std::vector<std::string> payloads;
    for (int i = 0; i < 150; ++i)
        payloads.push_back(std::to_string(i));
    payloads[70] = std::string(70'000, 'x');
    std::vector<net::tUdpDatagram> datagrams;
    for (const std::string& payload : payloads)
        datagrams.push_back({payload.data(), static_cast<int>(payload.size())});
    datagrams[80].len = -1;
    testing::internal::CaptureStderr();
    EXPECT_EQ(sender.sendBatch(datagrams.data(), 150), 148);
    testing::internal::GetCapturedStderr();
    ASSERT_TRUE(waitUntil([&] { return m_collector.count() == 148; }));
    EXPECT_EQ(m_collector.all()[69].payload, "69");
    EXPECT_EQ(m_collector.all()[70].payload, "71");
    EXPECT_EQ(m_collector.all()[147].payload, "149");
}

TEST_F(tUdpSenderTest, sendsWholeDatagramsFromManyThreads)
{
    const auto receiver = receive(m_collector, m_group);
    net::UdpSender sender(m_group, loopbackIp(), 0);
    std::vector<std::thread> threads;
    for (char mark = 'a'; mark < 'e'; ++mark)
        threads.emplace_back([&sender, mark] {
            for (int i = 0; i < 200; ++i)
                sender.sendData(std::string(1000, mark).data(), 1000);
        });
    for (std::thread& thread : threads)
        thread.join();
    ASSERT_TRUE(waitUntil([&] { return m_collector.count() == 800; }));
    for (const tReceivedDatagram& got : m_collector.all())
        ASSERT_EQ(got.payload, std::string(1000, got.payload.at(0)));
}
