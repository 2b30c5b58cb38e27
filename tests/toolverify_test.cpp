// kestova verify and recover, as their users run them: results and exit statuses, full disks, kills.
#include <algorithm>
#include <chrono>
#include <filesystem>
#include <map>

#include "support/ownnamespace.h"
#include "support/sanitized.h"
#include "support/sheetedrecording.h"
#include "support/toolfixture.h"

namespace
{
namespace fs = std::filesystem;
using tToolVerifyTest = tToolFixture;

constexpr std::size_t cLong = 12'000;  // records of an unfinished file that takes a while to recover

std::string stateOf(const std::string& path)
{
    tChildProcess child({KESTOVA_TOOL, "verify", path, "--json"});
    child.wait();
    return tJson::parse(child.out()).at("files").at(0).at("state");
}

tSegments longRecording()
{
    tSegments segments;
    for (std::size_t i = 0; i < cLong; ++i)
        segments.push_back({1'000'000 + i, makePackage(static_cast<std::uint32_t>(i), numberedSegment(i, 400))});
    return segments;
}
}  // namespace

TEST_F(tToolVerifyTest, reportsStatesAndFindings)
{
    recordWithSheet(dir.file("a.data"), packagesOf(5));
    EXPECT_EQ(result({"verify", dir.string()}).at("total"),
              (tJson{{"sound", 1}, {"recording", 0}, {"unfinished", 0}, {"damaged", 0}}));
    recordByHand(dir.file("b.data"), packagesOf(5), false);
    recordWithSheet(dir.file("c.data"), packagesOf(5));
    flipBit(dir.file("c.data"), 10'000'050, 0);
    const tJson all = result({"verify", dir.string(), dir.file("a.data")}, 3);
    EXPECT_EQ(all.at("schema"), "kestova/verify/1");
    ASSERT_EQ(all.at("files").size(), 3u);
    expectIn(all.at("total"), {{"sound", 1}, {"unfinished", 1}, {"damaged", 1}});
    expectIn(all.at("files")[0], {{"state", "sound"}, {"findings", tJson::array()}, {"lost", 0}});
    expectIn(all.at("files")[2].at("findings").at(0),
             {{"kind", "payload"}, {"record", 0}, {"offset", 10'000'050}, {"time_ms", packagesOf(1)[0].time}});
    EXPECT_EQ(result({"verify", "--quick", dir.file("c.data")}).at("total").at("sound"), 1);
    EXPECT_NE(said({"verify", dir.file("none")}, 1).find("no such file"), std::string::npos);
}

TEST_F(tToolVerifyTest, recoversAFolder)
{
    recordWithSheet(dir.file("a.data"), packagesOf(5));
    recordByHand(dir.file("b.data"), packagesOf(5), false);
    tJson done = result({"recover", dir.string()});
    expectIn(done, {{"schema", "kestova/recover/1"}, {"kept", 12}, {"left_out", 0}, {"complete", true}});
    EXPECT_EQ(done.at("files")[1].at("done"), "finished");
    flipBit(dir.file("b.data"), 10'000'000, 0);
    EXPECT_NE(said({"recover", dir.file("b.data")}, 1).find("--to FOLDER"), std::string::npos);
    done = result({"recover", dir.string(), "--to", dir.file("saved")}, 3);
    expectIn(done, {{"kept", 11}, {"left_out", 1}});
    expectIn(done.at("files")[1], {{"done", "saved"}, {"result", dir.file("saved/b.data")}, {"left_out", 1}});
    EXPECT_EQ(result({"verify", dir.file("saved")}).at("total").at("sound"), 1);
    EXPECT_NE(said({"recover", dir.string(), "--to", dir.file("saved")}, 1).find("exists"), std::string::npos);
}

TEST_F(tToolVerifyTest, leavesNothingHalfOnAFullDisk)
{
    if (const std::string& why = tTinyDisk::enter(); !why.empty())
        GTEST_SKIP() << why;
    fs::create_directory(dir.file("disk"));
    const tTinyDisk disk(dir.file("disk"), 2);
    recordWithSheet(dir.file("r.data"), longRecording());  // 9 MB
    flipBit(dir.file("r.data"), 10'000'000, 0);
    const std::string line = said({"recover", dir.file("r.data"), "--to", dir.file("disk/saved")}, 1);
    EXPECT_EQ(std::ranges::count(line, '\n'), 1) << line;
    EXPECT_NE(line.find("No space"), std::string::npos) << line;
    EXPECT_TRUE(fs::is_empty(dir.file("disk")));
}

// Killed at any moment, a file is as before or as after, and the new recording is whole or not there.
TEST_F(tToolVerifyTest, isKilledWithoutLoss)
{
    constexpr int cKills = cSanitized ? 8 : 16;
    const tSegments segments = longRecording();
    const std::string unfinished = dir.file("u/r.data"), damaged = dir.file("d/r.data"), saved = dir.file("saved");
    const auto recoverFor = [&](std::chrono::steady_clock::duration time) {
        for (const char* name : {"u", "d", "saved"})
            fs::remove_all(dir.file(name));
        fs::create_directory(dir.file("u"));
        fs::create_directory(dir.file("d"));
        recordByHand(unfinished, segments, false);
        writeSheetOf(unfinished, cLong / 2, false);
        recordByHand(damaged, segments);
        flipBit(damaged, 10'000'000, 0);
        tChildProcess child(tool({"recover", dir.file("u"), dir.file("d"), "--to", saved}));
        const auto start = std::chrono::steady_clock::now();
        child.wait(time);  // its end is a kill
        return std::chrono::steady_clock::now() - start;
    };
    const auto whole = recoverFor(std::chrono::seconds(30));
    std::map<std::string, int> states;
    for (int kill = 0; kill < cKills; ++kill)
    {
        recoverFor(whole * kill * 5 / (cKills * 4));  // some after its end, too
        const std::string state = stateOf(unfinished);
        ++states[state + (fs::exists(saved) ? ", saved" : "")];
        EXPECT_TRUE(segmentsOf(unfinished) == segments);
        EXPECT_EQ(fs::exists(saved) ? segmentsBelow(saved).size() : cLong - 1, cLong - 1);
    }
    EXPECT_GT(states["unfinished"], 0);
    EXPECT_GT(states["sound"] + states["sound, saved"], 0);
    EXPECT_EQ(states["unfinished"] + states["sound"] + states["sound, saved"], cKills);
}
