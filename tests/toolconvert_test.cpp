// kestova compress, kestova expand and kestova record --compress as their users meet them.
#include <filesystem>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "UdpSocket/udpsocket.h"
#include "support/childprocess.h"
#include "support/datagramcollector.h"
#include "support/recordedsegments.h"
#include "support/recording.h"
#include "support/tempdir.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace
{
using tJson = nlohmann::json;

class tToolConvertTest : public testing::Test
{
protected:
    static std::vector<std::string> tool(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), KESTOVA_TOOL);
        return arguments;
    }
    static tJson result(const std::vector<std::string>& arguments, int status = 0)
    {
        tChildProcess child(tool(arguments));
        EXPECT_EQ(child.wait(), status) << child.err();
        const tJson json = tJson::parse(child.out(), nullptr, false);
        return json.is_object() ? json : tJson::object();
    }
    // A finished file of so many megabytes that compresses.
    tSegments make(const char* name, std::size_t megabytes)
    {
        tSegments segments;
        for (std::uint64_t i = 0; i < megabytes * 2; ++i)
        {
            segments.push_back({1000 + i, numberedSegment(i, 500'000)});
            for (std::size_t k = 16; k < 500'000; k += 2)
                segments.back().bytes[k] = 0;
        }
        recordByHand(dir.file(name), segments);
        return segments;
    }
    std::vector<std::string> leftovers() const
    {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(dir.string()))
            if (entry.path().extension() != ".data")
                names.push_back(entry.path().filename());
        return names;
    }

    tTempDir dir;
};
}  // namespace

TEST_F(tToolConvertTest, compressesAFolderAndExpandsItAgain)
{
    const tSegments segments = make("a.data", 2);
    make("b.data", 1);
    recordByHand(dir.file("u.data"), {{1, "unfinished"}}, false);
    const tJson compressed = result({"compress", dir.string(), "--json"}, 3);
    EXPECT_EQ(compressed.at("schema"), "kestova/compress/1");
    EXPECT_EQ(compressed.at("files").size(), 2u);
    EXPECT_NE(compressed.at("failed").at(0).get<std::string>().find("unfinished"), std::string::npos);
    EXPECT_LT(compressed.at("after_bytes"), compressed.at("before_bytes").get<std::uint64_t>() * 2 / 3);
    EXPECT_EQ(segmentsOf(dir.file("a.tar.data")), segments);
    EXPECT_EQ(result({"compress", dir.string(), "--json"}, 1).at("already"), 2);
    EXPECT_EQ(result({"info", dir.file("a.tar.data"), "--json"}).at("total").at("records"), segments.size());
    EXPECT_EQ(result({"expand", dir.string(), "--json"}).at("files").size(), 2u);
    EXPECT_EQ(segmentsOf(dir.file("a.data")), segments);
    EXPECT_TRUE(leftovers().empty());
}

TEST_F(tToolConvertTest, endsAtCtrlCWithTheOriginal)
{
    const tSegments segments = make("c.data", 60);
    tChildProcess child(tool({"compress", dir.string(), "--json"}));
    ASSERT_TRUE(waitUntil([&] { return fs::exists(dir.file("c.data.part")); }));
    child.signal(SIGINT);
    EXPECT_EQ(child.wait(), 1);
    EXPECT_NE(child.err().find("interrupted"), std::string::npos) << child.err();
    EXPECT_FALSE(tJson::parse(child.out()).at("complete"));
    EXPECT_TRUE(segmentsOf(dir.file("c.data")) == segments);
    EXPECT_TRUE(leftovers().empty());
}

TEST_F(tToolConvertTest, compressesWhatItHasRecorded)
{
    const NetAddress group = testGroup();
    const std::string address = net::transAddr(group.ip) + ":" + std::to_string(net::NtoHs(group.port));
    tChildProcess recorder(tool(
        {"record", "--group", address, "--local-ip", "127.0.0.1", "--root", dir.file("rec"), "--compress", "--json"}));
    ASSERT_TRUE(recorder.says("recording to "));
    net::UdpSender sender(group, loopbackIp(), 0);
    for (int i = 0; i < 50; ++i)
        EXPECT_TRUE(sender.sendData("aaaaaaaabbbbc", 13));
    recorder.signal(SIGINT);
    ASSERT_EQ(recorder.wait(), 0) << recorder.err();
    const std::string file = tJson::parse(recorder.out()).at("files").at(0);
    EXPECT_NE(file.find(".tar.data"), std::string::npos);
    EXPECT_EQ(segmentsOf(file).size(), 50u);
    EXPECT_EQ(result({"replay", file, "--speed", "10", "--json"}).at("records"), 50);
}
