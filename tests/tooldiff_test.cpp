// kestova diff: what it prints, and its exit status.
#include <algorithm>
#include <filesystem>

#include "support/capturefile.h"
#include "support/toolfixture.h"

namespace
{
class tToolDiffTest : public tToolFixture
{
protected:
    std::string recording(const char* name, const std::vector<std::string>& payloads, std::uint64_t time = cTime) const
    {
        std::vector<std::string> packages;
        for (const std::string& payload : payloads)
            packages.push_back(makePackage(static_cast<std::uint32_t>(packages.size()), payload));
        return fileOf(packages, 10, name, time);
    }
};
}  // namespace

TEST_F(tToolDiffTest, showsEveryKindOfDifference)
{
    const std::string a = recording("a.data", {"one", "two", "three", "four", "five"});
    const std::string b = recording("b.data", {"one", "three", "FOUR", "five", "six"}, cTime + 1000);
    const tJson result = this->result({"diff", a, b}, 3);
    expectIn(result, {{"schema", "kestova/diff/1"}, {"a", a}, {"b", b}, {"equal", false}, {"skipped", tJson::array()}});
    const tJson row = result.at("streams").at(0);
    expectIn(row, {{"stream", "arpaStream"},
                   {"address", "239.17.0.1:6001"},
                   {"same", 3},
                   {"only_a", 1},
                   {"only_b", 1},
                   {"changed", 1},
                   {"moved", 0},
                   {"late", 0},
                   {"first", {{"a_ms", cTime + 10}, {"b_ms", nullptr}}}});
    expectIn(result.at("clock"),
             {{"offset_ms", 990}, {"deviation_p50_ms", 0}, {"deviation_p99_ms", 10}, {"deviation_max_ms", 10}});
    EXPECT_NE(said({"diff", a, b}, 3).find("1 of 1 streams differ\n"), std::string::npos);
}

TEST_F(tToolDiffTest, endsWithAStatusForEachOutcome)
{
    const std::string a = recording("a.data", {"one", "two"}), b = recording("b.data", {"one", "two"}, cTime + 77);
    EXPECT_TRUE(result({"diff", a, b}).at("equal"));
    EXPECT_NE(said({"diff", a, b}).find("equal: 2 messages in 1 streams\n"), std::string::npos);
    EXPECT_TRUE(result({"diff", a, b, "--ignore-time"}).at("equal"));
    EXPECT_TRUE(result({"diff", a, b, "--tolerance", "1ms"}).at("equal")) << "the offset is taken out";
    EXPECT_NE(said({"diff", a}, 2).find("B is required"), std::string::npos);
    EXPECT_NE(said({"diff", a, dir.file("none")}, 1).find("none: no such file or folder"), std::string::npos);
    EXPECT_NE(said({"diff", a, b, "--streams", "depthDev"}, 1).find("none of the chosen streams"), std::string::npos);
    said({"diff", a, b, "--tolerance", "1ms", "--ignore-time"}, 2);
}

TEST_F(tToolDiffTest, mapsGroupsOfAToThoseOfB)
{
    tCapture capture;
    capture.add(tFrame{.payload = "one", .to = "239.99.0.1", .port = 6001});
    const std::string a = recording("a.data", {"one"}), b = capture.writeTo(dir.file("b.pcap"));
    EXPECT_EQ(result({"diff", a, b}, 3).at("streams").size(), 2u);
    for (const char* rule : {"239.17.0.1=239.99.0.1", "239.17.0.1:6001=239.99.0.1:6001"})
        EXPECT_EQ(result({"diff", a, b, "--map", rule}).at("streams").at(0).at("address"), "239.99.0.1:6001");
    EXPECT_NE(said({"diff", a, b, "--map", "239.1.1.1=239.2.2.2"}, 1).find("A has no messages of 239.1.1.1"),
              std::string::npos);
    said({"diff", a, b, "--map", "239.1.1.1"}, 2);
}

TEST_F(tToolDiffTest, namesFilesThatItSkips)
{
    std::filesystem::create_directories(dir.file("folder"));
    recording("folder/a.data", {"one"});
    const std::string b = recording("b.data", {"one"});
    putBytes(dir.file("folder/bad.data"), 0, "nothing of a recording");
    const tJson result = this->result({"diff", dir.file("folder"), b}, 3);
    EXPECT_FALSE(result.at("equal")) << "nobody knows what the file held";
    EXPECT_EQ(result.at("skipped").at(0).at("path"), dir.file("folder/bad.data"));
    EXPECT_EQ(result.at("streams").at(0).at("same"), 1);
}
