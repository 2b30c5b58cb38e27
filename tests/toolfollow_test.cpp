// kestova replay and dump beside a recorder: --follow, and what else decides which records are played when.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <gmock/gmock.h>
#include <sstream>
#include <thread>

#include "KestovaStorage/datastorageio.h"
#include "sessions/replay/lateness.h"
#include "support/toolfixture.h"

namespace
{
using namespace std::chrono_literals;
using testing::HasSubstr;

std::string spoke(std::size_t number)
{
    return "spoke " + std::to_string(number);
}

class tToolFollowTest : public tToolFixture
{
protected:
    // Records so many packages, numbered on, a few at a time.
    void write(storage::tDataStorageIO& recorder, std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i, ++m_written)
        {
            const std::string package = makePackage(static_cast<std::uint32_t>(m_written), spoke(m_written), eReadType);
            recorder.WriteData(package.data(), package.size(), 0);
            if (i % 5 == 4)
                std::this_thread::sleep_for(5ms);
        }
        ASSERT_TRUE(recorder.WaitWriteIdle(20'000));
    }
    // Into a file that is compressed, and the two that follow it.
    void writeThreeFiles(storage::tDataStorageIO& recorder)
    {
        write(recorder, 200);
        for (int file = 0; file < 2; ++file)
        {
            ASSERT_TRUE(recorder.StartNextFile());
            write(recorder, 100);
        }
    }
    static std::size_t linesOf(tChildProcess& child)
    {
        const std::string out = child.out();
        return static_cast<std::size_t>(std::count(out.begin(), out.end(), '\n'));
    }
    std::string record(std::uint32_t count, std::uint64_t stepMs) const
    {
        std::vector<std::string> segments;
        for (std::uint32_t i = 0; i < count; ++i)
            segments.push_back(makePackage(i, spoke(i), eReadType));
        return fileOf(segments, stepMs);
    }

    const std::string root = dir.file("rec");
    std::size_t m_written = 0;
};
}  // namespace

TEST_F(tToolFollowTest, playsWhatIsRecordedMeanwhileOnceAndInOrder)
{
    tGroupListener display;
    storage::tDataStorageIO recorder(root.c_str(), ".data");
    ASSERT_TRUE(recorder.CreateNewWritingFile(0, "", true));
    write(recorder, 50);
    tChildProcess player(tool({"replay", root, "--follow", "--json", "--net", "--local-ip", "127.0.0.1", "--map",
                               "239.17.0.1:6001=" + addressText(display.group)}));
    ASSERT_TRUE(player.says("following ")) << player.err();
    writeThreeFiles(recorder);
    EXPECT_TRUE(display.heard(400));  // before the recorder ends
    write(recorder, 30);
    recorder.FinishWrite();
    ASSERT_EQ(player.wait(), 0) << player.err();
    const auto heard = display.all();
    ASSERT_EQ(heard.size(), m_written);
    for (std::size_t i = 0; i < heard.size(); ++i)
        ASSERT_EQ(heard[i].payload, spoke(i));
    expectIn(parsed(player.out()), {{"sent", m_written}, {"records", m_written}, {"ended", true}, {"damaged", 0}});
}

// The second file is compressed, the name of the first one gone, before they are played.
TEST_F(tToolFollowTest, playsLateWhatHasBeenCompressedMeanwhile)
{
    storage::tDataStorageIO recorder(root.c_str(), ".data");
    ASSERT_TRUE(recorder.CreateNewWritingFile(0, "", true));
    write(recorder, 50);
    std::this_thread::sleep_for(100ms);
    write(recorder, 50);
    tChildProcess player(tool({"replay", root, "--follow", "--speed", "0.1", "--json"}));
    ASSERT_TRUE(player.says("following ")) << player.err();
    writeThreeFiles(recorder);
    ASSERT_TRUE(waitUntil([&] { return recorder.GetCompressingCnt() == 0; }, 20s));
    write(recorder, 1);
    recorder.FinishWrite();
    EXPECT_EQ(player.wait(120s), 0) << player.err();
    expectIn(parsed(player.out()), {{"records", m_written}, {"ended", true}, {"damaged", 0}});
}

TEST_F(tToolFollowTest, showsEveryRecordHoweverSeldomItLooks)
{
    storage::tDataStorageIO recorder(root.c_str(), ".data");
    ASSERT_TRUE(recorder.CreateNewWritingFile(0, "", false));
    write(recorder, 50);
    tChildProcess dump(tool({"dump", root, "--follow"}));
    ASSERT_TRUE(waitUntil([&] { return linesOf(dump) == 50; }, 20s)) << dump.err();
    dump.signal(SIGSTOP);
    writeThreeFiles(recorder);
    recorder.FinishWrite();
    dump.signal(SIGCONT);
    EXPECT_EQ(dump.wait(), 0) << dump.err();
    EXPECT_EQ(linesOf(dump), m_written);
}

TEST_F(tToolFollowTest, endsWhenTheRecorderIsKilled)
{
    const NetAddress group = testGroup();
    net::UdpSender sender(group, loopbackIp(), 0);
    tChildProcess recorder(tool({"record", "--root", root, "--group", addressText(group), "--local-ip", "127.0.0.1"}));
    ASSERT_TRUE(recorder.says("recording to ")) << recorder.err();
    for (int i = 0; i < 20; ++i)
        ASSERT_TRUE(sender.sendData("datagram", 8));
    tChildProcess player(tool({"replay", root, "--follow", "--json"}));
    tChildProcess dump(tool({"dump", root, "--follow"}));
    ASSERT_TRUE(player.says("following ")) << player.err();
    for (int i = 0; i < 20; ++i)
        ASSERT_TRUE(sender.sendData("datagram", 8));
    ASSERT_TRUE(waitUntil([&] { return linesOf(dump) == 40; }, 20s)) << dump.err();
    recorder.signal(SIGKILL);
    EXPECT_EQ(player.wait(), 0) << player.err();
    EXPECT_EQ(dump.wait(), 0) << dump.err();
    EXPECT_EQ(parsed(player.out()).at("records"), 40);
    EXPECT_EQ(linesOf(dump), 40u);
}

TEST_F(tToolFollowTest, waitsForTheFirstRecordAndForNoTimeThatCannotHavePassed)
{
    storage::tDataStorageIO recorder(root.c_str(), ".data");
    ASSERT_TRUE(recorder.CreateNewWritingFile(0, "", false));
    tChildProcess player(tool({"replay", root, "--follow", "--json"}));
    ASSERT_TRUE(player.says("following ")) << player.err();
    const auto now = static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch())
            .count());
    std::this_thread::sleep_for(200ms);                                // it has looked for records
    for (const std::uint64_t time : {now, now + 3'600'000, now + 20})  // the clock is set on and back
        recorder.WriteData("raw", 3, time);
    ASSERT_TRUE(recorder.WaitWriteIdle(20'000));
    recorder.FinishWrite();
    EXPECT_EQ(player.wait(), 0) << player.err();
    const tJson json = parsed(player.out());
    EXPECT_EQ(json.at("records"), 3);
    EXPECT_LT(json.at("late_max_ms"), 60'000.0);
}

TEST_F(tToolFollowTest, playsFromStartToEndAgainAndAgain)
{
    tGroupListener display;
    tChildProcess player(
        tool({"replay", record(40, 50), "--json", "--start", "+500ms", "--end", "+1s", "--loop", "3", "--net",
              "--local-ip", "127.0.0.1", "--map", "239.17.0.1:6001=" + addressText(display.group)}));
    ASSERT_TRUE(display.heard(1));
    const auto first = std::chrono::steady_clock::now();
    ASSERT_TRUE(display.heard(21));
    EXPECT_GT(std::chrono::steady_clock::now() - first, 940ms);  // 900 without the time behind the last record
    ASSERT_EQ(player.wait(), 0) << player.err();
    ASSERT_EQ(display.all().size(), 30u);
    for (std::size_t i = 0; i < 30; ++i)
        EXPECT_EQ(display.all()[i].payload, spoke(10 + i % 10));
    expectIn(parsed(player.out()), {{"passes", 3}, {"end_ms", cTime + 1000}, {"played_ms", 3 * 450}});
}

TEST_F(tToolFollowTest, refusesAnEndThatLeavesNothing)
{
    const std::string path = record(20, 100);
    EXPECT_THAT(said({"replay", path, "--end", "2001-01-01 00:00:00"}, 1), HasSubstr("is not behind the start"));
    EXPECT_THAT(said({"replay", path, "--start", "+1s", "--end", "+1s"}, 1),
                HasSubstr("--end +1s is not behind the start"));
    EXPECT_THAT(said({"replay", path, "--follow", "--loop"}, 2), HasSubstr("--loop"));
    EXPECT_EQ(result({"replay", path, "--end", "+1d", "--top-speed"}).at("records"), 20);
    EXPECT_EQ(result({"replay", path, "--end", "100%", "--top-speed"}).at("records"), 19);
}

TEST_F(tToolFollowTest, playsAtTopSpeedEveryRecordInOrder)
{
    tGroupListener display;
    const tJson json = result({"replay", record(100, 3'600'000), "--top-speed", "--net", "--local-ip", "127.0.0.1",
                               "--map", "239.17.0.1:6001=" + addressText(display.group)});
    expectIn(json, {{"sent", 100}, {"speed", nullptr}, {"late_p50_ms", nullptr}, {"drift_percent", nullptr}});
    ASSERT_TRUE(display.heard(100));
    for (std::size_t i = 0; i < 100; ++i)
        EXPECT_EQ(display.all()[i].payload, spoke(i));
}

TEST_F(tToolFollowTest, countsAStallThatItsClockForgets)
{
    tChildProcess player(tool({"replay", record(40, 50), "--json"}));
    ASSERT_TRUE(player.says("playing ")) << player.err();
    player.signal(SIGSTOP);
    std::this_thread::sleep_for(800ms);
    player.signal(SIGCONT);
    ASSERT_EQ(player.wait(), 0) << player.err();
    const tJson json = parsed(player.out());
    EXPECT_GT(json.at("late_max_ms"), 500.0);
    EXPECT_LT(json.at("late_p50_ms"), 500.0);
}

TEST(tLatenessTest, knowsADelayAndADrift)
{
    session::tLateness lateness;
    lateness.setSpeed(2.0);
    const auto at = [](std::int64_t ns) { return session::tLateness::tTime(std::chrono::nanoseconds(ns)); };
    // Every 2 ms, played a millisecond apart: one in a hundred is 5 ms late, the others 0.1 ms and a drift of 0.02 %.
    constexpr std::int64_t cStart = 1'000'000'000, cMs = 1'000'000;
    for (std::int64_t i = 0; i <= 1000; ++i)
        lateness.add(static_cast<std::uint64_t>(5000 + 2 * i), 0, cStart + i * cMs,
                     at(cStart + i * cMs + i * 200 + (i % 50 == 25 ? 5 * cMs : 100'000)));
    lateness.add(900'000, 0, cStart + 2'000 * cMs, at(cStart + 2'000 * cMs));  // behind a jump
    const session::tPaceTruth truth = lateness.truth();
    EXPECT_NEAR(truth.p50Ms.value(), 0.2, 0.01);
    EXPECT_NEAR(truth.p99Ms.value(), 5.1, 0.1);
    EXPECT_NEAR(truth.maxMs.value(), 5.195, 0.001);
    EXPECT_NEAR(truth.driftPercent.value(), 0.02, 1e-6);
    EXPECT_FALSE(session::tLateness().truth().p50Ms);
}
