// The recorder's rooms: how it stamps and names a recording, the joined groups.
#include <functional>
#include <gtest/gtest.h>

#include "KestovaStorage/internal/radar/groupreceivers.h"
#include "KestovaStorage/internal/radar/radarstreams.h"
#include "KestovaStorage/internal/radar/recordingname.h"
#include "support/datagramcollector.h"
#include "support/recordedpackages.h"

using namespace Kestova;

TEST(tStreamCatalogueTest, holdsTheRowsThatRecordingsAreStampedWith)
{
    const std::vector<std::string> rows{"1,2,4,0,0 20480", "2,1,5,1,0 2048",  "1,2,4,2,0 2048",  "1,2,4,3,0 1024",
                                        "2,1,5,4,0 1024",  "1,2,4,5,0 1024",  "1,2,4,6,0 20480", "1,2,4,7,0 2048",
                                        "1,2,4,8,0 2048",  "1,2,4,9,0 2048",  "1,2,4,10,0 2048", "2,1,5,12,0 1024",
                                        "1,2,4,13,0 2048", "2,1,5,14,0 1024", "1,2,4,15,0 2048", "2,1,5,16,0 1024",
                                        "1,2,4,17,0 2048", "0,0,0,0,0 0"};
    ASSERT_EQ(RadarMsgSocketInfos.size(), rows.size());
    for (std::size_t kind = 0; kind < rows.size(); ++kind)
        EXPECT_EQ(asText(RadarMsgSocketInfos[kind].msgInfo) + " " +
                      std::to_string(RadarMsgSocketInfos[kind].recBuffSize),
                  rows[kind]);
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
struct tCalled : net::iUdpDataListener
{
    void OnUdpGroupDataReceived(const char*, int, const char*, int, const char*, int) override
    {
        ++calls;
        during();
    }
    std::function<void()> during;
    std::atomic<int> calls{0};
};
}  // namespace

TEST(tReceiverGroupsTest, findsAGroupFromTheFirstDatagramToTheLastAndTellsOfOneThatCannotBeJoined)
{
    tCalled listener;
    tGroupReceivers groups(&listener);
    const NetAddress group = testGroup();
    bool known = false;
    tUdpMsgInfo info{};
    listener.during = [&] {
        waitUntil([&] { return groups.states().empty(); });  // it is being closed
        known = groups.find(group, info);
    };
    groups.open({{group, {}, 1024}}, net::transAddr("192.0.2.1"));  // no interface has this address
    EXPECT_FALSE(groups.states().at(0).joined);
    EXPECT_TRUE(groups.close());
    groups.open({{group, {1, 2, 4, 7, 0}, 1024}}, loopbackIp());
    ASSERT_TRUE(groups.states().at(0).joined);
    net::UdpSender(group, loopbackIp(), 0).sendData("x", 1);
    ASSERT_TRUE(waitUntil([&] { return listener.calls == 1; }));
    EXPECT_TRUE(groups.close());
    EXPECT_TRUE(known && info.rwType == 7);
    EXPECT_FALSE(groups.find(group, info) || groups.close());
}
