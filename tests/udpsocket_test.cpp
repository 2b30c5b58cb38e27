#include "UdpSocket/udpsocket.h"

#include <cstring>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <memory>
#include <set>
#include <thread>

#include "UdpSocket/datagramreceiver.h"
#include "UdpSocket/internal/gathering.h"
#include "UdpSocket/transport.h"
#include "support/datagramcollector.h"
#include "support/kernelstamps.h"
#include "support/processentries.h"

using namespace std::chrono_literals;
using testing::HasSubstr;

namespace
{
// A listener that does what the test says at every datagram.
struct tCallingListener : net::iUdpDataListener
{
    explicit tCallingListener(std::function<void()> c) : call(std::move(c)) {}
    void OnUdpGroupDataReceived(const char*, int, const char*, int, const char*, int) override { call(); }
    const std::function<void()> call;
};

class tUdpSocketTest : public testing::Test
{
protected:
    static std::unique_ptr<net::UdpReceiver> receive(net::iUdpDataListener& listener, const NetAddress& group)
    {
        return std::make_unique<net::UdpReceiver>(&listener, loopbackIp(), group, 2048);
    }
    static void send(const NetAddress& group, const std::string& payload)
    {
        net::UdpSender sender(group, loopbackIp(), 0);
        ASSERT_TRUE(sender.sendData(payload.data(), static_cast<int>(payload.size())));
    }
    bool heard(std::size_t number) const
    {
        return waitUntil([&] { return m_collector.count() == number; });
    }
    static std::ptrdiff_t lines(const std::string& said) { return std::count(said.begin(), said.end(), '\n'); }

    const NetAddress m_group = testGroup();
    const NetAddress m_unicast{loopbackIp(), m_group.port};
    tDatagramCollector m_collector;
};

// Sources that share a thread, each with a sender; `during` runs in every call.
class tSourcesTest : public testing::Test, protected net::iDatagramListener
{
protected:
    explicit tSourcesTest(std::size_t count = 3)
    {
        for (std::size_t i = 0; i < count; ++i)
        {
            m_requests.push_back({this, testGroup()});
            m_senders.push_back(std::make_unique<net::UdpSender>(m_requests[i].group, loopbackIp(), 0));
        }
        m_sources = net::defaultTransport().openSources(m_requests, loopbackIp(), 0);
        EXPECT_TRUE(waitForKernelStamps());
    }
    ~tSourcesTest() override { m_sources.clear(); }
    void OnDatagram(const net::tReceivedDatagram& got) override
    {
        during(got);
        m_payloads.add(std::string(got.data, static_cast<std::size_t>(got.len)));
    }
    void send(std::size_t source, const std::string& payload) const
    {
        ASSERT_TRUE(m_senders[source]->sendData(payload.data(), static_cast<int>(payload.size())));
    }
    bool heard(std::size_t number) const
    {
        return waitUntil([&] { return m_payloads.count() == number; });
    }

    std::function<void(const net::tReceivedDatagram&)> during = [](const auto&) {};
    tCollector<std::string> m_payloads;
    std::vector<net::tSourceRequest> m_requests;
    std::vector<std::unique_ptr<net::UdpSender>> m_senders;
    std::vector<std::unique_ptr<net::iDatagramSource>> m_sources;
};

using tUdpReceiverTest = tUdpSocketTest;
using tUdpSenderTest = tUdpSocketTest;
}  // namespace

TEST(tParseAddressTest, givesZeroForTheHalfThatIsWrong)
{
    const std::tuple<std::string, const char*, std::uint16_t> cases[] = {
        {"239.17.0.1:6001", "239.17.0.1", 6001},
        {"10.0.0.1:65535", "10.0.0.1", 65535},
        {"10.0.0.1:65536", "10.0.0.1", 0},
        {"10.0.0.1:", "10.0.0.1", 0},
        {"10.0.0.1", "10.0.0.1", 0},
        {"10.0.0.1: 80", "10.0.0.1", 0},
        {"10.0.0.1:80x", "10.0.0.1", 0},
        {"10.0.0:80", "0.0.0.0", 80},
        {std::string("10.0.0.1\0:80", 12), "0.0.0.0", 80}};
    for (const auto& [text, ip, port] : cases)
        EXPECT_TRUE(net::parseAddress(text) == (NetAddress{net::transAddr(ip), net::HtoNs(port)})) << text;
}

TEST(tTransAddrTest, keepsTheBytesInTheOrderTheyAreWrittenAndGivesZeroForWhatIsNoAddress)
{
    const std::uint32_t ip = net::transAddr("239.17.0.1");
    EXPECT_EQ(std::memcmp(&ip, "\xEF\x11\x00\x01", 4), 0);
    EXPECT_EQ(net::transAddr(ip), "239.17.0.1");
    EXPECT_EQ(net::transAddr(std::uint32_t{0}), "0.0.0.0");
    EXPECT_EQ(net::NtoHs(net::HtoNs(6001)), 6001);
    for (const char* text : {"", "1.2.3", "1.2.3.4.5", "256.1.1.1", "1.2.3.4 ", " 1.2.3.4", "01.2.3.4", "0x1.2.3.4",
                             "localhost", "1.2.3.4:5", "-1.2.3.4", "0.0.0.0"})
        EXPECT_EQ(net::transAddr(text), 0U) << text;
    EXPECT_EQ(net::transAddr(static_cast<const char*>(nullptr)), 0U);
}

TEST_F(tUdpReceiverTest, deliversPayloadAndAddressesAsTextsAndAsNumbers)
{
    struct tNumbers : net::iDatagramListener, tCollector<std::string>
    {
        void OnDatagram(const net::tReceivedDatagram& got) override
        {
            add(std::string(got.data, static_cast<std::size_t>(got.len)) + " " + addressText(got.from) + " " +
                addressText(got.group));
        }
    };
    const NetAddress from{loopbackIp(), testGroup().port};
    for (const NetAddress& address : {m_group, m_unicast})
    {
        tDatagramCollector texts;
        tNumbers numbers;
        const auto send = [&] { return net::UdpSender(address, loopbackIp(), net::NtoHs(from.port)).sendData("x", 1); };
        auto receiver = receive(texts, address);
        ASSERT_TRUE(receiver->valid() && send() && waitUntil([&] { return texts.count() == 1; }));
        receiver.reset();
        const net::tDatagramReceiver plain(&numbers, loopbackIp(), address, 0);
        ASSERT_TRUE(plain.valid() && send() && waitUntil([&] { return numbers.count() == 1; }));
        EXPECT_EQ(numbers.all().back(), "x " + addressText(from) + " " + addressText(address));
        const tReceivedDatagram got = texts.all()[0];
        EXPECT_EQ(got.payload + " " + got.from + " " + got.group, numbers.all().back());
        EXPECT_TRUE(plain.receiveBufferSize() != 0 && waitUntil([&] { return plain.counters().bytes == 1; }));
    }
}

TEST_F(tUdpReceiverTest, sharesItsGroupAndKeepsOtherGroupsOnThePortOut)
{
    const NetAddress other{net::transAddr("239.255.7.7"), m_group.port};
    tDatagramCollector same, others;
    const auto receiver = receive(m_collector, m_group), second = receive(same, m_group),
               third = receive(others, other);
    send(other, "not ours");
    send(m_unicast, "to this machine, not to the group");
    send(m_group, "ours");
    ASSERT_TRUE(waitUntil([&] { return m_collector.count() == 1 && same.count() == 1 && others.count() == 1; }));
    EXPECT_EQ(m_collector.all().front().payload, "ours");
    EXPECT_EQ(others.all().front().payload, "not ours");
}

TEST_F(tUdpReceiverTest, truncatesAndMixesNoDatagramsFromEmptyToTheLargest)
{
    const auto receiver = receive(m_collector, m_group);
    std::vector<std::string> sent{"", "", 'a' + std::string(1470, 'x') + 'b', 'c' + std::string(1471, 'x') + 'd'};
    for (char mark = 'a'; mark <= 'h'; ++mark)
        sent.push_back(mark + std::string(65505, 'x') + mark);
    for (const std::string& payload : sent)
        send(m_group, payload);
    ASSERT_TRUE(heard(12));
    for (std::size_t i = 0; i < sent.size(); ++i)
        EXPECT_TRUE(m_collector.all()[i].payload == sent[i]) << i;
    EXPECT_EQ(receiver->counters().datagrams, 12U);
    EXPECT_EQ(receiver->counters().bytes, 8 * 65507U + 1472U + 1473U);
}

// The listener is held in its first call while more is sent than any buffer takes; the last datagrams are among the
// lost ones, so no later datagram can tell of them.
TEST_F(tUdpReceiverTest, countsExactlyWhatTheKernelDrops)
{
    std::atomic<bool> go{false};
    std::atomic<std::uint64_t> calls{0};
    tCallingListener listener([&] {
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
        const net::UdpReceiver receiver(&m_collector, loopbackIp(), m_group, wanted);
        EXPECT_GE(receiver.receiveBufferSize(), std::min<long>(systemLimit, std::max(wanted, 4 * 1024 * 1024)));
    }
}

// Several batches lie in the kernel's buffer; a listener that needs 20 ms for a datagram must not hold the destructor
// up for more than the one that it is at.
TEST_F(tUdpReceiverTest, deliversNothingMoreOnceItEnds)
{
    std::atomic<int> calls{0};
    std::atomic<bool> filled{false};
    tCallingListener listener([&] {
        ++calls;
        EXPECT_TRUE(waitUntil([&] { return filled.load(); }));
        std::this_thread::sleep_for(20ms);  // the listener's own work
    });
    auto receiver = receive(listener, m_group);
    for (int i = 0; i < 300; ++i)
        send(m_group, "one of many");
    filled = true;
    ASSERT_TRUE(waitUntil([&] { return calls >= 3; }));
    receiver.reset();
    const int before = calls;
    EXPECT_LT(before, 20);
    EXPECT_FALSE(waitUntil([&] { return calls != before; }, 50ms));
}

TEST_F(tUdpReceiverTest, mayBeDestroyedFromInsideItsOwnCall)
{
    std::atomic<int> calls{0};
    std::atomic<net::UdpReceiver*> receiver{nullptr};
    std::thread([] {}).join();  // a sanitizer starts a thread of its own beside the first one
    const auto threadsBefore = runningThreads();
    tCallingListener listener([&] {
        EXPECT_TRUE(waitUntil([&] { return receiver != nullptr; }));
        delete receiver.load();
        ++calls;
    });
    receiver = receive(listener, m_group).release();
    for (int i = 0; i < 5; ++i)
        send(m_group, "last");
    EXPECT_TRUE(waitUntil([&] { return runningThreads() == threadsBefore; }));
    EXPECT_EQ(calls, 1);
}

TEST(tGatheringTest, pausesForABatchASocketAtTheRateOfTheLastPass)
{
    const struct
    {
        std::size_t received, sockets;
        std::chrono::nanoseconds elapsed, pause;
    } cases[] = {{0, 1, 1ms, 0ms},      {64, 1, 1ms, 1ms},   {64, 4, 1ms, 4ms},      {128, 1, 1ms, 500us},
                 {6400, 1, 1ms, 100us}, {20, 1, 10ms, 10ms}, {1, 1, 500us, 10ms},    {1, 1, 5ms, 10ms},
                 {1, 1, 6ms, 0ms},      {3, 1, 1s, 0ms},     {64, 64, 1280us, 10ms}, {1, 1, 0ns, 100us}};
    net::tGathering gathering(10ms);
    for (const auto& c : cases)
        EXPECT_EQ(gathering.pauseAfter(c.received, c.sockets, c.elapsed), c.pause) << c.received << " " << c.sockets;
    gathering.limit(4'000'000);
    gathering.limit(8'000'000);
    EXPECT_EQ(gathering.pauseAfter(20, 1, 10ms), 4ms) << "a pause that the smallest receive buffer can hold";
    gathering.limit(99'999);
    EXPECT_FALSE(gathering.enabled());
    EXPECT_EQ(gathering.pauseAfter(64, 1, 1ms), 0ms);
}

// The thread is held in the first call while more than a batch a group arrives.
TEST_F(tSourcesTest, deliverOnOneThreadInTheOrderOfArrivalWithItsTime)
{
    std::atomic<bool> go{false};
    std::set<std::thread::id> threads;
    std::uint64_t latest_ms = 0;
    bool rising = true;
    during = [&](const net::tReceivedDatagram& got) {
        EXPECT_TRUE(waitUntil([&] { return go.load(); }));
        threads.insert(std::this_thread::get_id());
        rising = rising && got.arrived_ms >= latest_ms;
        EXPECT_EQ(got.arrived_ns / 1'000'000, got.arrived_ms);
        latest_ms = got.arrived_ms;
    };
    const std::uint64_t before_ms = systemTime_ms();
    std::vector<std::string> sent;
    for (std::size_t i = 0; i < 500; ++i)
    {
        sent.push_back(std::to_string(i));
        send(i * i % 7 % 3, sent.back());
    }
    const std::uint64_t after_ms = systemTime_ms();
    std::this_thread::sleep_for(20ms);  // the time of delivery is another one
    go = true;
    ASSERT_TRUE(heard(sent.size()));
    EXPECT_EQ(m_payloads.all(), sent);
    EXPECT_EQ(threads.size(), 1u);
    EXPECT_TRUE(rising && latest_ms >= before_ms && latest_ms <= after_ms) << latest_ms << " " << after_ms;
}

TEST_F(tSourcesTest, haveDeliveredWhatHadArrivedBeforeTheyEnd)
{
    for (int i = 0; i < 100; ++i)  // at a rate for which the thread pauses
    {
        std::this_thread::sleep_for(500us);
        send(0, "before");
        send(1, "before");
    }
    m_sources[0].reset();
    EXPECT_EQ(m_payloads.count(), 200u) << "of the others too: the order of arrival holds";
    send(0, "after");
    send(1, "another one");
    EXPECT_TRUE(heard(201));
    EXPECT_EQ(m_payloads.all().back(), "another one");
}

TEST_F(tSourcesTest, mayBeDestroyedFromInsideACallOfAnyOfThem)
{
    std::atomic<bool> ready{false};
    during = [&](const net::tReceivedDatagram&) {
        EXPECT_TRUE(waitUntil([&] { return ready.load(); }));
        m_sources[0].reset();
        m_sources[1].reset();
    };
    for (const std::size_t source : {0u, 1u, 0u, 1u})
        send(source, "one call at most");
    ready = true;
    ASSERT_TRUE(heard(1));
    during = [](const auto&) {};
    send(0, "gone");
    send(2, "still here");
    ASSERT_TRUE(heard(2));
    EXPECT_EQ(m_payloads.all().back(), "still here");
    std::atomic<bool> ended{false};
    during = [&](const net::tReceivedDatagram&) {
        m_sources.clear();  // the last of them, and the thread
        ended = true;
    };
    send(2, "the last one");
    EXPECT_TRUE(waitUntil([&] { return ended && m_payloads.count() == 3; }));
}

TEST_F(tUdpSocketTest, saysOnceWhatCannotBeJoinedOrSentFromWhereAndWhy)
{
    const std::uint32_t nobody = net::transAddr("203.0.113.77");
    testing::internal::CaptureStderr();
    const net::UdpReceiver receiver(&m_collector, nobody, m_group, 2048);
    EXPECT_EQ(receiver.counters().datagrams, 0U);
    EXPECT_EQ(receiver.receiveBufferSize(), 0);
    EXPECT_FALSE(receiver.valid());
    std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(lines(said), 1);
    EXPECT_THAT(said, HasSubstr(addressText(m_group) + " on 203.0.113.77: No such device"));
    testing::internal::CaptureStderr();
    net::UdpSender sender(m_group, nobody, 0);
    EXPECT_FALSE(sender.sendData("x", 1));
    sender.setMulticastLoop(true);
    said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(lines(said), 1);
    EXPECT_THAT(said, HasSubstr("203.0.113.77"));
}

TEST_F(tUdpSenderTest, reportsItsFirstRefusalOnlyAndGoesOn)
{
    const std::string tooLong(65508, 'x');
    testing::internal::CaptureStderr();
    net::UdpSender sender(m_unicast, loopbackIp(), 0);
    for (int i = 0; i < 2; ++i)
        EXPECT_FALSE(sender.sendData(tooLong.data(), 65508));
    EXPECT_FALSE(sender.sendData("x", -1));
    EXPECT_FALSE(sender.sendData(nullptr, 1));
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(lines(said), 1);
    EXPECT_THAT(said, HasSubstr("Message too long"));
    for (int i = 0; i < 20; ++i)
        EXPECT_TRUE(sender.sendData("anyone?", 7)) << "nobody listens";
}

TEST_F(tUdpSenderTest, sendsABatchInOrderAndLeavesRefusedOnesOut)
{
    const auto receiver = receive(m_collector, m_group);
    net::UdpSender sender(m_group, loopbackIp(), 0);
    std::vector<std::string> payloads;
    for (int i = 0; i < 150; ++i)
        payloads.push_back(i == 70 ? std::string(70'000, 'x') : std::to_string(i));
    std::vector<net::tUdpDatagram> datagrams;
    for (const std::string& payload : payloads)
        datagrams.push_back({payload.data(), static_cast<int>(payload.size())});
    datagrams[80].len = -1;
    testing::internal::CaptureStderr();
    EXPECT_EQ(sender.sendBatch(datagrams.data(), 150), 148);
    testing::internal::GetCapturedStderr();
    ASSERT_TRUE(heard(148));
    for (const auto& [place, payload] : {std::pair(69, "69"), {70, "71"}, {78, "79"}, {79, "81"}, {147, "149"}})
        EXPECT_EQ(m_collector.all().at(static_cast<std::size_t>(place)).payload, payload);
}
