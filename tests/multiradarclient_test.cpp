#include "KestovaUtils/multiradarclient.h"

#include <cstdlib>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <thread>

#include "KestovaUtils/streamnames.h"
#include "support/addresslistener.h"
#include "support/addresstext.h"
#include "support/tempdir.h"
#include "support/waituntil.h"

using namespace std::chrono_literals;
using testing::ElementsAre;

namespace
{
// A listener whose call does what the test says.
struct tCallingListener : iMultiRadarCheckerListener
{
    explicit tCallingListener(std::function<void()> c) : call(std::move(c)) {}
    ~tCallingListener() override { MultiRadarClient::getInstance()->removeListener(this); }
    void OnLocalIpChanged(unsigned int) override
    {
        ++calls;
        call();
    }
    const std::function<void()> call;
    std::atomic<int> calls{0};
};

class tMultiRadarClientTest : public testing::Test
{
protected:
    tMultiRadarClientTest() { EXPECT_TRUE(m_client.setLocalInterface("127.0.0.1")); }

    std::string directory(const std::string& text)
    {
        const std::string path = m_folder.file("radars.json");
        std::ofstream(path) << text;
        return path;
    }
    static RadarAddress recordWithImage(const char* ip)
    {
        RadarAddress record{};
        record.imageStream = {net::transAddr(ip), net::HtoNs(6001)};
        return record;
    }
    // All earlier notifications are delivered: the client calls one listener after the other.
    void settle()
    {
        tAddressListener last;
        m_client.addListener(&last);
        EXPECT_TRUE(waitUntil([&] { return last.count() == 1; }));
    }

    MultiRadarClient& m_client = *MultiRadarClient::getInstance();
    tTempDir m_folder;
};
}  // namespace

TEST_F(tMultiRadarClientTest, takesADirectoryOrRefusesItWholeAndSaysWhere)
{
    ASSERT_TRUE(m_client.loadDirectory(directory(R"({"radars":[{"serial":"A1:2","id":1,"streams":{
        "imageStream":"239.17.0.1:6001"}}]})")));
    ASSERT_NE(m_client.getAddress("A1:2", 1), nullptr);
    EXPECT_EQ(addressText(m_client.getAddress("A1:2", 1)->imageStream), "239.17.0.1:6001");
    EXPECT_FALSE(m_client.getAddress("A1:2", 0) || m_client.getAddress("A1", 1) || m_client.getAddress(nullptr, 1));
    const std::string path = directory(R"({"radars":[{"serial":"fine","id":0,"streams":{}},
        {"serial":"wrong","id":0,"streams":{"imageStream":"239.17.0.1:0"}}]})");
    std::string error;
    EXPECT_FALSE(m_client.loadDirectory(path, &error));
    EXPECT_EQ(error, path + ": radar 2: imageStream: address \"239.17.0.1:0\" has no port from 1 to 65535");
    EXPECT_EQ(m_client.getAddress("fine", 0), nullptr);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(m_client.loadDirectory(path));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), error + "\n");
}

TEST_F(tMultiRadarClientTest, keepsARecordThatWasHandedOut)
{
    m_client.setAddress("kept", 3, recordWithImage("239.1.1.1"));
    const RadarAddress* before = m_client.getAddress("kept", 3);
    ASSERT_NE(before, nullptr);
    m_client.setAddress("kept", 3, recordWithImage("239.1.1.1"));
    EXPECT_EQ(m_client.getAddress("kept", 3), before);
    m_client.setAddress("kept", 3, recordWithImage("239.2.2.2"));
    EXPECT_EQ(addressText(before->imageStream), "239.1.1.1:6001");
    EXPECT_EQ(addressText(m_client.getAddress("kept", 3)->imageStream), "239.2.2.2:6001");
}

TEST_F(tMultiRadarClientTest, listsItsRadarsInOrderAndNoneWithoutASerial)
{
    for (const char* serial : {"list", "", static_cast<const char*>(nullptr)})
        for (const unsigned short id : std::initializer_list<unsigned short>{2, 1})
            m_client.setAddress(serial, id, RadarAddress{});
    std::string listed;
    for (const tRadarName& name : m_client.radars())
        listed += name.serial == "list" || name.serial.empty() ? name.serial + std::to_string(name.id) + " " : "";
    EXPECT_EQ(listed, "list1 list2 ");
}

TEST_F(tMultiRadarClientTest, notifiesOfEveryChangeInOrderAndRefusesWhatIsNeitherInterfaceNorAddress)
{
    tAddressListener listener;
    for (iMultiRadarCheckerListener* each : {&listener, &listener, static_cast<tAddressListener*>(nullptr)})
        m_client.addListener(each);
    for (const char* text : {"198.51.100.7", "198.51.100.7", "lo"})
        EXPECT_TRUE(m_client.setLocalInterface(text));
    for (const char* text : {"", "nosuch0", "0.0.0.0", "127.0.0", "127.0.0.1:80", "/dev/null"})
        EXPECT_FALSE(m_client.setLocalInterface(text)) << text;
    settle();
    EXPECT_THAT(listener.all(), ElementsAre("127.0.0.1", "198.51.100.7", "127.0.0.1"));
}

TEST_F(tMultiRadarClientTest, callsOnAThreadOfItsOwnAndHasEndedTheCallWhenItRemovesAListener)
{
    std::atomic<bool> calling{false};
    tCallingListener listener([&] {
        calling = true;
        waitUntil([] { return false; }, 50ms);
        calling = false;
    });
    m_client.addListener(&listener);
    EXPECT_TRUE(waitUntil([&] { return calling.load(); }));
    m_client.removeListener(&listener);
    EXPECT_FALSE(calling);
}

TEST_F(tMultiRadarClientTest, letsACallRemoveItsListenerAndUseTheWholeClient)
{
    tAddressListener other;
    tCallingListener listener([&] {
        m_client.removeListener(&listener);
        if (listener.calls == 2)
            return;
        m_client.addListener(&listener);
        m_client.addListener(&other);
        EXPECT_TRUE(m_client.setLocalInterface("198.51.100.7"));
        m_client.setAddress("inside", 0, RadarAddress{});
        EXPECT_NE(m_client.getAddress("inside", 0), nullptr);
    });
    m_client.addListener(&listener);
    ASSERT_TRUE(waitUntil([&] { return other.count() == 2; }));
    settle();
    EXPECT_EQ(listener.calls, 2);
    EXPECT_THAT(other.all(), ElementsAre("127.0.0.1", "198.51.100.7"));
}

// A thread that still runs when main ends must not take the process down.
TEST_F(tMultiRadarClientTest, letsTheProcessEndWhileItCalls)
{
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
        {
            // The call is still under way when main has long ended.
            static auto* s_listener = new tCallingListener([] { waitUntil([] { return false; }, 20s); });
            m_client.addListener(s_listener);
            std::exit(waitUntil([] { return s_listener->calls == 1; }) ? 7 : 1);
        },
        testing::ExitedWithCode(7), "");
}

TEST(tRadarAddressTest, keepsEighteenNamedStreamKindsSideBySideFromByteSix)
{
    RadarAddress record{};
    std::string wanted(6, '\0');
    for (unsigned int kind = 0; kind < 18; ++kind)
    {
        const NetAddress address{0x01010101U * (kind + 1), net::HtoNs(static_cast<std::uint16_t>(0x1700 + kind))};
        record.setStreamAddress(kind, address);
        EXPECT_EQ(addressText(record.streamAddress(kind)), addressText(address));
        EXPECT_EQ(RadarAddress::streamKind(RadarAddress::streamName(kind)), static_cast<int>(kind));
        wanted += std::string(4, static_cast<char>(kind + 1)) + '\x17' + static_cast<char>(kind);
    }
    for (const unsigned int kind : {18U, 254U, 255U, 0xFFFFFFFFU})
    {
        record.setStreamAddress(kind, {1, 1});
        EXPECT_EQ(addressText(record.streamAddress(kind)), "0.0.0.0:0");
        EXPECT_EQ(RadarAddress::streamName(kind), nullptr);
    }
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&record), sizeof record), wanted + std::string(2, '\0'));
    for (const char* name : {"ImageStream", "otherType", static_cast<const char*>(nullptr)})
        EXPECT_EQ(RadarAddress::streamKind(name), -1);
}

TEST(tStreamNamesTest, namesKindsOfStreamsAndMessages)
{
    for (const auto& [kind, name] : {std::pair(0U, "imageStream"),
                                     {11U, "secondArpaStream"},
                                     {14U, "arpaSeverCtrl"},
                                     {17U, "radarClientState"},
                                     {254U, "radarCheck"},
                                     {255U, "otherType"}})
    {
        EXPECT_STREQ(utils::streamName(kind), name);
        EXPECT_EQ(utils::streamKind(name), static_cast<int>(kind));
    }
    EXPECT_FALSE(utils::streamName(18) || utils::streamName(256) || utils::messageName(9));
    EXPECT_EQ(utils::streamKind(std::string("gpsDev\0", 7)), -1);
    EXPECT_STREQ(utils::messageName(4), "readType");
    EXPECT_STREQ(utils::messageName(8), "radarClientType");
}
