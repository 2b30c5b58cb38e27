// The radar room: how a recording is stamped and named, the joined groups, the transport below them.
#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <system_error>

#include "KestovaStorage/internal/radar/groupreceivers.h"
#include "KestovaStorage/internal/radar/radarstreams.h"
#include "KestovaStorage/internal/radar/recordingname.h"
#include "KestovaStorage/internal/radar/servicequery.h"
#include "KestovaStorage/internal/replay/senderpool.h"
#include "KestovaStorage/internal/replay/servicerepeater.h"
#include "support/datagramcollector.h"
#include "support/recordedpackages.h"

using namespace Kestova;

// Rows 11 to 16 carry the block of the kind behind them, the last row none.
TEST(tRadarStreamsTest, stampsCommandsAsSentToTheRadarAndEverythingElseAsSentByIt)
{
    const std::set<int> commands{eImageCtrl, eArpaCtrl, eCameraCtrl, eArpaSeverCtrl, eRadarClientCtrl};
    for (int row = 0; row < eRadarClientState; ++row)
    {
        const int kind = row < eSecondArpaStream ? row : row + 1;
        EXPECT_EQ(asText(RadarMsgSocketInfos.at(static_cast<std::size_t>(row)).msgInfo),
                  (commands.contains(kind) ? "2,1,5," : "1,2,4,") + std::to_string(kind) + ",0");
    }
    EXPECT_EQ(asText(RadarMsgSocketInfos.back().msgInfo), "0,0,0,0,0");
}

TEST(tRecordingNameTest, isSerialAndLetter)
{
    const struct
    {
        const char* serial;
        unsigned short id;
        const char* name;
    } cases[] = {
        {"A1:2", 1, "A1_2_B"},   {"A1:2:3", 0, "A1_2:3_A"},   {":A1:2", 2, ":A1:2_C"}, {"A1", 25, "A1_Z"},
        {"A1", 26, "A1_26"},     {"A1", 191, "A1_191"},       {"A1", 238, "A1_238"},   {"A1", 65535, "A1_65535"},
        {"../x", 0, "..%2Fx_A"}, {"a\\b\n", 0, "a%5Cb%0A_A"}, {"", 0, "_A"},           {"\xC3\xA9", 0, "\xC3\xA9_A"}};
    for (const auto& c : cases)
        EXPECT_EQ(recordingName(c.serial, c.id), c.name);
}

namespace
{
struct tCalled : net::iDatagramListener
{
    void OnDatagram(const net::tReceivedDatagram&) override
    {
        ++calls;
        during();
    }
    std::function<void()> during = [] {};
    std::atomic<int> calls{0};
};

// Carries datagrams inside the process: what is sent to a group reaches the sources that are open on it.
class tWire : public iTransport
{
public:
    std::unique_ptr<iDatagramSource> openSource(net::iDatagramListener* listener, const NetAddress& group,
                                                std::uint32_t, int) override
    {
        if (group.ip == m_down)
            throw std::system_error(EAGAIN, std::generic_category());
        struct tSource : iDatagramSource
        {
            bool joined() const override { return true; }
            net::tUdpReceiverCounters counters() const override { return {3, 2, 1}; }
        };
        m_listeners[group] = listener;
        return std::make_unique<tSource>();
    }
    std::unique_ptr<iDatagramSink> openSink(const NetAddress& destination, std::uint32_t) override
    {
        struct tSink : iDatagramSink
        {
            tSink(tWire& w, const NetAddress& to) : wire(w), destination(to) {}
            bool send(const char* data, int len) override
            {
                std::string bytes(data, static_cast<std::size_t>(len));
                wire.sent.push_back(bytes);
                const auto heard = wire.m_listeners.find(destination);
                if (heard == wire.m_listeners.end())
                    return false;
                heard->second->OnDatagram({{}, destination, bytes.data(), len});
                return true;
            }
            tWire& wire;
            const NetAddress destination;
        };
        return std::make_unique<tSink>(*this, destination);
    }

    std::uint32_t m_down = 0;
    std::map<NetAddress, net::iDatagramListener*, tNetAddress_less> m_listeners;
    std::vector<std::string> sent;
};
}  // namespace

TEST(tTransportTest, carriesReceptionQueriesAndReplayOverAnyTransport)
{
    tWire wire;
    tCalled listener;
    tGroupReceivers groups(&listener, wire);
    wire.m_down = 1;
    testing::internal::CaptureStderr();
    groups.open({{{1, 1}, {}, 0}, {{2, 2}, {}, 0}}, 0);
    EXPECT_EQ(std::ranges::count(testing::internal::GetCapturedStderr(), '\n'), 1);
    ASSERT_EQ(groups.states().size(), 2u);
    EXPECT_FALSE(groups.states()[0].joined);
    EXPECT_TRUE(groups.states()[1].joined && groups.states()[1].counters.bytes == 2);
    tSenderPool replay(0, wire);
    EXPECT_TRUE(replay.send({2, 2}, "spoke", 5));
    EXPECT_FALSE(replay.send({3, 3}, "lost", 4));
    EXPECT_EQ(listener.calls, 1);
    tServiceQuery query;
    query.setSink(wire.openSink(serviceGroup(), 0));
    EXPECT_FALSE(query.queryIfSilent(std::chrono::steady_clock::now())) << "no source is open there";
    tServiceRepeater repeater(0, std::chrono::milliseconds(1), wire);
    EXPECT_EQ(wire.sent, (std::vector<std::string>{"spoke", "lost", "\x01\xB1"}));
}

TEST(tGroupReceiversTest, findsAGroupFromTheFirstDatagramToTheLastAndShowsOneThatCannotBeJoined)
{
    tCalled listener;
    tGroupReceivers groups(&listener);
    const NetAddress group = testGroup();
    bool known = false;
    tGroupRow row{};
    listener.during = [&] {
        waitUntil([&] { return groups.states().empty(); });  // it is being closed
        known = groups.find(group, row);
    };
    groups.open({{group, {}, 1024}}, net::transAddr("192.0.2.1"));  // no interface has this address
    EXPECT_FALSE(groups.states().at(0).joined);
    EXPECT_TRUE(groups.close());
    groups.open({{group, {1, 2, 4, 7, 0}, 1024}}, loopbackIp());
    ASSERT_TRUE(groups.states().at(0).joined);
    net::UdpSender(group, loopbackIp(), 0).sendData("x", 1);
    ASSERT_TRUE(waitUntil([&] { return listener.calls == 1; }));
    EXPECT_TRUE(groups.close());
    EXPECT_TRUE(known && row.msgInfo.rwType == 7 && row.text.data() == net::transAddr(group.ip));
    EXPECT_FALSE(groups.find(group, row) || groups.close());
}
