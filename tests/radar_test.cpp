// The radar room: how a recording is stamped and named, the joined groups, the transport below them.
#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <set>
#include <system_error>

#include "KestovaStorage/internal/radar/groupreceivers.h"
#include "KestovaStorage/internal/radar/radarstreams.h"
#include "KestovaStorage/internal/radar/recordingname.h"
#include "KestovaStorage/internal/radar/servicequery.h"
#include "KestovaStorage/internal/replay/senderpool.h"
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

TEST(tRadarStreamsTest, joinsTheWantedStreamsInOrderThenTheFixedGroupsAndEachGroupOnce)
{
    const auto joined = [](const RadarAddress& radar, const std::vector<eReadWriteType>& kinds) {
        std::string text;
        for (const tRadarGroup& group : radarGroups(radar, kinds))
            text += addressText(group.address) + " " + asText(group.msgInfo) + "; ";
        return text;
    };
    const NetAddress gps{net::transAddr("239.17.0.9"), net::HtoNs(6009)};
    RadarAddress radar{};
    radar.setStreamAddress(eGpsDev, gps);
    radar.setStreamAddress(eAisDev, gps);
    radar.setStreamAddress(eDepthDev, {net::transAddr("236.6.7.4"), net::HtoNs(6768)});
    radar.setStreamAddress(eImageCtrl, {gps.ip, 0});
    radar.setStreamAddress(eImageState, {0, gps.port});
    const std::string check = "236.6.7.20:6720 1,2,4,254,0; ", service = "236.6.7.5:6878 0,0,3,255,0; ";
    EXPECT_EQ(joined(radar, {eGpsDev, eAisDev, eGpsDev, eDepthDev, eImageStream, eImageCtrl, eImageState,
                             eTotalReadWriteTypes, eRadarCheck, eOtherType}),
              "239.17.0.9:6009 1,2,4,8,0; 236.6.7.4:6768 1,2,4,9,0; " + check + service);
    EXPECT_EQ(joined(radar, {}), check + "236.6.7.4:6768 0,1,2,255,0; " + service);
}

TEST(tRecordingNameTest, isSerialAndLetter)
{
    const std::tuple<const char*, unsigned short, const char*> cases[] = {
        {"A1:2", 1, "A1_2_B"},   {"A1:2:3", 0, "A1_2:3_A"},   {":A1:2", 2, ":A1:2_C"}, {"A1", 25, "A1_Z"},
        {"A1", 26, "A1_26"},     {"A1", 191, "A1_191"},       {"A1", 238, "A1_238"},   {"A1", 65535, "A1_65535"},
        {"../x", 0, "..%2Fx_A"}, {"a\\b\n", 0, "a%5Cb%0A_A"}, {"", 0, "_A"},           {"\xC3\xA9", 0, "\xC3\xA9_A"}};
    for (const auto& [serial, id, name] : cases)
        EXPECT_EQ(recordingName(serial, id), name);
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

// Keeps what is sent; reaches nothing with the address 1.
struct tWire : net::iTransport
{
    bool needsLocalAddress() const override { return false; }
    struct tEnd : net::iDatagramSource, net::iDatagramSink
    {
        tEnd(tWire& w, bool r) : wire(w), reaches(r) {}
        bool joined() const override { return true; }
        net::tUdpReceiverCounters counters() const override { return {3, 2, 1}; }
        bool send(const char* data, int len) override
        {
            wire.sent.emplace_back(data, static_cast<std::size_t>(len));
            return reaches;
        }
        tWire& wire;
        const bool reaches;
    };
    std::unique_ptr<net::iDatagramSource> openSource(net::iDatagramListener*, const NetAddress& group, std::uint32_t,
                                                     int) override
    {
        if (group.ip == 1)
            throw std::system_error(EAGAIN, std::generic_category());
        return std::make_unique<tEnd>(*this, true);
    }
    std::unique_ptr<net::iDatagramSink> openSink(const NetAddress& destination, std::uint32_t) override
    {
        return std::make_unique<tEnd>(*this, destination.ip != 1);
    }
    std::vector<std::string> sent;
};
}  // namespace

TEST(tTransportTest, carriesReceptionQueriesAndReplayOverAnyTransport)
{
    tWire wire;
    tCalled listener;
    tGroupReceivers groups(&listener, wire);
    testing::internal::CaptureStderr();
    EXPECT_TRUE(groups.canOpen(0) && !tGroupReceivers(&listener).canOpen(0)) << "UDP waits for an address";
    groups.open({{{1, 1}, {}, 0}, {{2, 2}, {}, 0}}, 0);
    EXPECT_EQ(std::ranges::count(testing::internal::GetCapturedStderr(), '\n'), 1);
    ASSERT_EQ(groups.states().size(), 2u);
    EXPECT_FALSE(groups.states()[0].joined);
    EXPECT_TRUE(groups.states()[1].joined && groups.states()[1].counters.bytes == 2);
    tSenderPool replay(0, wire);
    EXPECT_TRUE(replay.send({2, 2}, "spoke", 5));
    EXPECT_FALSE(replay.send({1, 1}, "lost", 4));
    tServiceQuery query;
    query.setSink(wire.openSink({1, 1}, 0));
    EXPECT_FALSE(query.queryIfSilent(std::chrono::steady_clock::now()));
    EXPECT_EQ(wire.openSources({{&listener, {2, 2}}, {&listener, {3, 3}}}, 0, 0).size(), 2u);
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
