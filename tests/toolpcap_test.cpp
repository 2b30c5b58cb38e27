// kestova pcap and kestova export: a recording becomes a capture, and the capture that recording again.
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "KestovaRecordings/frames.h"
#include "UdpSocket/udpsocket.h"
#include "support/childprocess.h"
#include "support/radarpackages.h"
#include "support/recordedpackages.h"
#include "support/recording.h"
#include "support/tempdir.h"

namespace
{
using tJson = nlohmann::json;

constexpr std::uint64_t cTime = 1'700'000'000'123;

std::uint32_t word(const std::string& bytes, std::size_t at)
{
    return static_cast<unsigned char>(bytes.at(at)) * 256u + static_cast<unsigned char>(bytes.at(at + 1));
}

// Of bytes that hold their own checksum, and it is right.
bool hasRightChecksum(std::string bytes)
{
    bytes.resize((bytes.size() + 1) / 2 * 2);
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < bytes.size(); i += 2)
        sum += word(bytes, i);
    return sum != 0 && sum % 0xFFFF == 0;  // ones' complement: carries come back in
}

class tToolPcapTest : public testing::Test
{
protected:
    static tJson result(std::vector<std::string> arguments, int status = 0)
    {
        arguments.insert(arguments.begin(), KESTOVA_TOOL);
        tChildProcess child(arguments);
        EXPECT_EQ(child.wait(), status) << child.err();
        const tJson json = tJson::parse(child.out(), nullptr, false);
        return json.is_object() ? json : tJson::object();
    }
    tTempDir dir;
};
}  // namespace

TEST_F(tToolPcapTest, makesACaptureOfARecordingAndTheRecordingOfTheCapture)
{
    tSegments segments;
    const std::vector<std::string> payloads = {
        "", "a", std::string(1472, 'b'), std::string(1473, 'c'), std::string(65'000, 'd'), "\x5A\xA5\xE0\x01spoke"};
    for (std::size_t i = 0; i < payloads.size(); ++i)
        segments.push_back({cTime + i * 250, makePackage(static_cast<std::uint32_t>(i), payloads[i], eReadType)});
    segments.push_back({cTime + 5000, "no package"});
    recordByHand(dir.file("r.data"), segments);
    const tJson exported = result({"export", dir.file("r.data"), "--pcap", dir.file("r.pcap"), "--json"}, 3);
    EXPECT_EQ(exported.at("datagrams"), payloads.size());
    EXPECT_EQ(exported.at("noDatagrams"), 1);
    EXPECT_EQ(exported.at("frames"), 4 + 2 + 44);  // 65,008 bytes in pieces of 1,480

    const tJson shown = result({"pcap", dir.file("r.pcap"), "--select", "all", "--to", dir.file("again"), "--json"});
    EXPECT_EQ(shown.at("datagrams"), payloads.size() - 1);  // statistics leave the empty one out
    EXPECT_EQ(shown.at("recorded").at("datagrams"), payloads.size());
    EXPECT_EQ(shown.at("streams").at(0).at("address"), "239.17.0.1:6001");
    const std::vector<tRecordedPackage> again = recordedPackages(dir.file("again"));
    ASSERT_EQ(again.size(), payloads.size());
    for (std::size_t i = 0; i < payloads.size(); ++i)
    {
        EXPECT_EQ(again[i].payload, payloads[i]) << i;
        EXPECT_EQ(again[i].timeMs, cTime + i * 250);
        EXPECT_EQ(net::transAddr(again[i].group.ip) + " " + std::to_string(again[i].group.port), "239.17.0.1 6001");
    }
}

TEST_F(tToolPcapTest, recordsOnlyWhatIsSelected)
{
    recordByHand(dir.file("r.data"), {{cTime, makePackage(1, "x", eReadType)}});
    result({"export", dir.file("r.data"), "--pcap", dir.file("r.pcap"), "--json"});
    const tJson none =
        result({"pcap", dir.file("r.pcap"), "--select", "239.17.0.2:6001", "--to", dir.file("none"), "--json"}, 3);
    EXPECT_EQ(none.at("recorded").at("datagrams"), 0);
    EXPECT_TRUE(none.at("streams").empty());
    EXPECT_TRUE(recordedPackages(dir.file("none")).empty());
    result({"export", dir.file("r.data"), "--pcap", dir.file("r.pcap")}, 1);  // it exists
    std::ofstream(dir.file("x.part")) << "somebody's";
    result({"export", dir.file("r.data"), "--pcap", dir.file("x")}, 1);
    EXPECT_TRUE(std::ifstream(dir.file("x.part")).good());
    result({"pcap", dir.file("r.pcap"), "--select", "all", "--to", dir.file("r.data")}, 1);  // no folder
}

TEST_F(tToolPcapTest, saysWhatItCannotReadAndHowToConvertIt)
{
    const auto head = [](std::uint32_t magic, std::uint32_t linkType) {
        return littleEndian(magic, 4) + littleEndian(0x00040002, 4) + std::string(12, '\0') + littleEndian(linkType, 4);
    };
    const std::pair<std::string, const char*> cases[] = {
        {head(0xD4C3B2A1, 1), "other byte order: convert it with editcap -F pcap"},
        {head(0xA1B23C4D, 1), "nanosecond"},
        {head(0x0A0D0D0A, 1), "pcapng"},
        {head(0xA1B2C3D4, 113), "Linux cooked"},
        {"text, long enough for a head", "no capture"},
        {"short", "shorter"}};
    for (const auto& [bytes, reason] : cases)
    {
        std::ofstream(dir.file("other"), std::ios::binary) << bytes;
        tChildProcess child({KESTOVA_TOOL, "pcap", dir.file("other")});
        EXPECT_EQ(child.wait(), 1) << reason;
        EXPECT_EQ(child.out(), "");
        EXPECT_NE(child.err().find(reason), std::string::npos) << child.err();
    }
    result({"pcap", dir.file("missing")}, 1);
}

TEST(tFramesTest, carriesRightChecksumsAndFragmentsThatFit)
{
    const NetAddress from = {net::transAddr("192.0.2.1"), net::HtoNs(6000)};
    const NetAddress to = {net::transAddr("239.200.3.4"), net::HtoNs(6001)};
    for (const std::size_t len : {0u, 1u, 1472u, 1473u, 2953u, 65'507u})
    {
        SCOPED_TRACE(len);
        std::string message;
        const std::vector<std::string> frames = tool::framesOf(from, to, std::string(len, '\xFF'), 77);
        for (const std::string& frame : frames)
        {
            EXPECT_LE(frame.size(), 1514u);
            EXPECT_EQ(frame.substr(0, 6), std::string("\x01\x00\x5E\x48\x03\x04", 6));
            EXPECT_TRUE(hasRightChecksum(frame.substr(14, 20)));
            EXPECT_EQ(word(frame, 16), frame.size() - 14);
            EXPECT_EQ((word(frame, 20) & 0x1FFF) * 8, message.size());
            EXPECT_EQ((word(frame, 20) & 0x2000) != 0, &frame != &frames.back());
            message += frame.substr(34);
        }
        ASSERT_EQ(message.size(), 8 + len);
        EXPECT_NE(word(message, 6), 0u);
        const std::string pseudo = frames[0].substr(26, 8) + std::string("\0\x11", 2) + message.substr(4, 2);
        EXPECT_TRUE(hasRightChecksum(pseudo + message));
    }
}
