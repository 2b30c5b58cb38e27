// kestova cut and kestova merge, as their users run them.
#include <filesystem>

#include "support/ownnamespace.h"
#include "support/recordedsegments.h"
#include "support/toolfixture.h"

namespace
{
class tToolCutTest : public tToolFixture
{
protected:
    std::string record(const char* name, std::size_t count, std::size_t len = 100) const
    {
        std::vector<std::string> segments;
        for (std::size_t i = 0; i < count; ++i)
            segments.push_back(makePackage(static_cast<std::uint32_t>(i), numberedSegment(i, len)));
        return fileOf(segments, 100, name);
    }
    std::size_t entries() const
    {
        return static_cast<std::size_t>(
            std::distance(std::filesystem::directory_iterator(dir.path()), std::filesystem::directory_iterator()));
    }
};
using tToolMergeTest = tToolCutTest;
}  // namespace

TEST_F(tToolCutTest, reportsTheNewRecording)
{
    const std::string path = record("made.data", 100);
    const tJson cut = result(
        {"cut", path, "--start", "+2s", "--end", "-2s", "--shift", "-1h", "--every", "4s", "--to", dir.file("part")});
    expectIn(cut, {{"schema", "kestova/cut/1"},
                   {"start_ms", cTime + 2000},
                   {"end_ms", cTime + 7900},
                   {"records", 60},
                   {"carried", 1},
                   {"damaged", 0},
                   {"folder", dir.file("part")}});
    ASSERT_EQ(cut.at("files").size(), 2u);
    const tJson& first = cut.at("files").at(0);
    EXPECT_EQ(segmentsOf(first.at("path")).size(), first.at("records"));
    EXPECT_EQ(first.at("first_ms"), cTime + 2000 - 3'600'000);
    EXPECT_NE(said({"info", dir.file("part")}).find("60 records"), std::string::npos);
    EXPECT_NE(said({"cut", path, "--to", dir.file("part")}, 1).find("exists already"), std::string::npos);
    EXPECT_NE(said({"cut", path, "--start", "+11s", "--to", dir.file("none")}, 1).find("in the span"),
              std::string::npos);
    EXPECT_NE(said({"cut", path, "--groups", "1.2.3.4", "--to", dir.file("none")}, 2).find("no group"),
              std::string::npos);
    std::filesystem::resize_file(path, std::filesystem::file_size(path) - 1);
    EXPECT_EQ(result({"cut", path, "--groups", "239.17.0.1:6001", "--to", dir.file("rest")}, 3).at("damaged"), 1);
}

TEST_F(tToolMergeTest, reportsWhatItLeftOut)
{
    const std::string a = record("a.data", 10), b = record("b.data", 12);
    const tJson merged =
        result({"merge", a, b, "--shift", b + "=250ms", "--unique", "--tolerance", "300ms", "--to", dir.file("both")});
    expectIn(merged, {{"schema", "kestova/merge/1"}, {"records", 12}, {"repeated", 10}});
    tChildProcess other(tool({"merge", a, dir.file("none"), "--to", dir.file("one"), "--json"}));
    EXPECT_EQ(other.wait(), 1);
    EXPECT_EQ(parsed(other.out()).at("skipped").at(0).at("path"), dir.file("none"));
    EXPECT_EQ(segmentsBelow(dir.file("one")), segmentsOf(a));
}

TEST_F(tToolMergeTest, refusesOptionsThatMeanNothing)
{
    const std::string a = record("a.data", 1);
    EXPECT_NE(said({"merge", a, "--shift", "b=1s", "--to", dir.file("x")}, 2).find("none of the paths"),
              std::string::npos);
    EXPECT_NE(said({"merge", a, "--shift", a, "--to", dir.file("x")}, 2).find("PATH=DUR"), std::string::npos);
    EXPECT_NE(said({"merge", a, "--tolerance", "1s", "--to", dir.file("x")}, 2).find("--unique"), std::string::npos);
}

TEST_F(tToolCutTest, leavesNothingWhenItIsKilledOrInterrupted)
{
    const std::string path = record("made.data", 8000, 20'000);
    const std::size_t before = entries();
    for (const int signal : {SIGINT, SIGKILL})
    {
        tChildProcess child(tool({"cut", path, "--to", dir.file("part")}));
        ASSERT_TRUE(waitUntil([&] { return entries() > before; }));
        child.signal(signal);
        EXPECT_EQ(child.wait(), signal == SIGINT ? 1 : 1000 + SIGKILL);
        EXPECT_FALSE(std::filesystem::exists(dir.file("part")));
        EXPECT_EQ(result({"info", dir.string()}).at("files").size(), 1u);
    }
    result({"cut", path, "--end", "+1s", "--to", dir.file("part")});
    EXPECT_EQ(entries(), before + 1);
}

TEST_F(tToolCutTest, saysInOneLineThatTheDiskIsFull)
{
    if (!tTinyDisk::enter().empty())
        GTEST_SKIP() << tTinyDisk::enter();
    const std::string path = record("made.data", 2000, 2000);
    std::filesystem::create_directory(dir.file("disk"));
    const tTinyDisk disk(dir.file("disk"), 2);
    for (const tArguments& command : {tArguments{"cut", path}, tArguments{"merge", path, path}})
    {
        tArguments arguments = command;
        arguments.insert(arguments.end(), {"--to", dir.file("disk/part")});
        const std::string line = said(arguments, 1);
        EXPECT_NE(line.find("No space left"), std::string::npos) << line;
        EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 1);
        EXPECT_TRUE(std::filesystem::is_empty(dir.file("disk")));
    }
}
