#include <cmath>
#include <filesystem>
#include <sys/resource.h>
#include <sys/stat.h>

#include "support/replayfixture.h"

using namespace std::chrono_literals;

class tReplayTest : public tReplayFixture
{};

TEST_F(tReplayTest, reportsStatusesSpanAndSegmentsInOrder)
{
    const std::tuple<std::vector<tSegments>, bool, const char*> cases[] = {
        {{{{5, "a"}, {6, "b"}, {8, "c"}}}, true, "0 5-8 1 a b c 4"},
        {{}, true, "0 0-0 1 4"},
        {{{}}, true, "0 0-0 1 4"},
        {{{{5, "a"}, {6, "b"}}}, false, "0 5-6 1 a b 4"},
        {{{{7, "a"}, {5, "b"}, {6, "c"}}}, true, "0 5-7 1 b c a 4"},
        {{{{5, "a"}, {5, "b"}}, {{5, "c"}}}, true, "0 5-5 1 a b c 4"},
        {{{{6, "a"}, {8, "b"}}, {{5, "c"}, {6, "d"}, {7, "e"}}}, true, "0 5-8 1 c a d e b 4"}};
    for (const auto& [files, finished, reported] : cases)
    {
        const tTempDir folder;
        for (std::size_t i = 0; i < files.size(); ++i)
            recordByHand(folder.file(std::to_string(i) + ".data"), files[i], finished);
        tReplayLog heard;
        player->OpenReadDataFileorFolder(folder.string(), &heard);
        EXPECT_TRUE(heard.waitForText(reported)) << reported << " but " << heard.text();
        player->CloseReadingFile();
    }
}

TEST_F(tReplayTest, reportsTimeProgressBytesAndFileOfEachSegment)
{
    const std::string path = record("one.data", {{1000, "first"}, {1005, std::string("\0x", 2)}, {1020, ""}});
    open(path);
    ASSERT_TRUE(log.waitFor("4")) << log.text();
    const auto segments = log.segments();
    ASSERT_EQ(segments.size(), 3u);
    EXPECT_EQ(segments[0].progress, 0.0);
    EXPECT_EQ(segments[1].progress, 0.25);
    EXPECT_EQ(segments[2].progress, 1.0);
    EXPECT_EQ(segments[1].time, 1005u);
    EXPECT_EQ(segments[1].bytes, std::string("\0x", 2));
    EXPECT_EQ(segments[2].bytes, "");
    EXPECT_EQ(segments[1].file, path);
    player->OpenReadDataFileorFolder(record("single.data", {{1000, "only"}}), &otherLog);
    ASSERT_TRUE(otherLog.waitFor("4"));
    EXPECT_EQ(otherLog.segments().at(0).progress, 1.0);
}

TEST_F(tReplayTest, takesEveryDataFileBelowAFolderAndNothingElse)
{
    std::filesystem::create_directories(dir.file("b/c"));
    std::filesystem::create_directory(dir.file("folder.data"));
    record("b/c/0.data", {{5, "second"}});
    record("a.data", {{5, "first"}});
    record("folder.data/x.data", {{5, "third"}});
    record("other.dat", {{5, "suffix"}});
    record("foreign.data", {{5, "magic"}});
    putBytes(dir.file("foreign.data"), 0, "RIFF");
    putBytes(dir.file("short.data"), 0, "\x01");
    std::filesystem::create_directory_symlink("..", dir.file("b/circle"));
    std::filesystem::create_directory_symlink("b", dir.file("z"));
    std::filesystem::create_symlink("nowhere", dir.file("dangling.data"));
    ASSERT_EQ(::mkfifo(dir.file("pipe.data").c_str(), 0600), 0);
    open(dir.string() + "/");
    EXPECT_TRUE(log.waitForText("0 5-5 1 first second third second 4")) << log.text();
    EXPECT_EQ(log.segments().at(1).file, dir.file("b/c/0.data"));
}

TEST_F(tReplayTest, playsSeveralPathsAsOneAndEachFileOnce)
{
    std::filesystem::create_directory(dir.file("folder"));
    const std::string last = record("a.data", {{5, "a"}, {8, "c"}});
    record("folder/b.data", {{6, "b"}});
    EXPECT_FALSE(player->OpenReadPaths({}, &log));
    EXPECT_TRUE(player->OpenReadPaths({last, dir.file("folder") + "/", last}, &log));
    EXPECT_TRUE(log.waitForText("0 5-8 1 a b c 4")) << log.text();
}

TEST_F(tReplayTest, jumpsToAFractionOfTheSpan)
{
    const std::pair<double, const char*> cases[] = {{0.0, "1 a"},   {0.5, "1 m"}, {0.500001, "1"},
                                                    {1.0, "1 z 4"}, {-0.1, "1"},  {2.0, "1 a m z 4"}};
    open(recordWaiting());
    ASSERT_TRUE(log.waitFor("a"));
    for (const auto& [fraction, reported] : cases)
    {
        SCOPED_TRACE(fraction);
        player->Stop();
        log.clear();
        ASSERT_TRUE(player->Jump(fraction));
        EXPECT_TRUE(log.waitForText(reported)) << log.text();
    }
}

TEST_F(tReplayTest, leavesOutSegmentsThatWereCutOffSinceOpening)
{
    const std::string path = record("cut.data", {{5, "a"}, {6, "kept"}, {7, "lost"}, {8, "half"}, {9, "?"}});
    putBytes(path, 2048 + 4 * 21, indexRecord(9, 10'000'000, 1));  // the last segment is the first one's byte
    log.react = [&](const std::string& word) {
        if (word == "5-9")
            std::filesystem::resize_file(path, 10'000'007);
    };
    open(path);
    EXPECT_TRUE(log.waitForText("0 5-9 1 a kept a 4")) << log.text();
}

TEST_F(tReplayTest, survivesAFileThatIsCutBelowItsIndexWhileItPlays)
{
    const std::string path = record("cut.data", tSegments(3'000, {5, std::string(200, 'b')}));
    log.react = [&](const std::string& word) {
        if (word[0] == 'b')
            std::filesystem::resize_file(path, 2048 + 1'500 * 21 + 3);
    };
    open(path);
    ASSERT_TRUE(log.waitFor("4"));
    EXPECT_EQ(log.segments().size(), 1u);
    EXPECT_EQ(player->GetUnreadCnt(), 2'999u);
    EXPECT_TRUE(player->Jump(1.0) && log.waitFor("4", 2));
}

TEST_F(tReplayTest, playsWithoutAnObserver)
{
    player->OpenReadDataFileorFolder(recordWaiting(), nullptr);
    EXPECT_TRUE(waitUntil([&] { return player->Pause(true); }));
    EXPECT_TRUE(player->Jump(1.0) && player->Stop() && player->Jump(0.3));
    player->CloseReadingFile();
    EXPECT_FALSE(player->Jump(0));
}

TEST_F(tReplayTest, isNeverEarly)
{
    open(record("paced.data", {{1000, "a"}, {1020, "b"}, {1120, "c"}, {1170, "d"}}));
    ASSERT_TRUE(log.waitFor("4"));
    for (const double pace : {1.0, 0.2, 3.0})  // of the recorded times; 0.5 plays at a third
    {
        player->FastSlowForward(pace == 3.0 ? 0.5 : 1 / pace);
        log.clear();
        const auto start = std::chrono::steady_clock::now();
        player->Jump(0);
        ASSERT_TRUE(log.waitFor("4", 1));
        for (const auto& segment : log.segments())  // the first tick comes at once
            EXPECT_GE(segment.arrived - start,
                      static_cast<double>(segment.time - 1000) * pace * 1ms - 1ms * std::max(1.0, pace));
    }
}

// Half speed lasts twice the recorded time, where FastSlowForward plays at a third; and two hours pass at once.
TEST_F(tReplayTest, playsAtExactlyTheSpeedThatIsSet)
{
    open(record("fast.data", {{cHour, "a"}, {3 * cHour, "b"}}));
    ASSERT_TRUE(log.waitFor("a"));
    EXPECT_FALSE(player->SetSpeed(0) || player->SetSpeed(std::nan("")) || player->SetSpeed(-2));
    ASSERT_TRUE(player->SetSpeed(100'000.5) && log.waitFor("4"));
    open(record("half.data", {{1000, "c"}, {1100, "d"}}));
    ASSERT_TRUE(player->SetSpeed(0.5) && log.waitFor("4", 2));
    log.clear();
    const auto start = std::chrono::steady_clock::now();
    player->Jump(0);
    ASSERT_TRUE(log.waitFor("d"));
    EXPECT_GE(log.segments()[1].arrived - start, 198ms);
}

TEST_F(tReplayTest, catchesUpWithNothingThatAStallHeldUp)
{
    log.react = [&](const std::string& word) { word == "a" && waitUntil([] { return false; }, 1s); };
    open(record("stall.data", {{1000, "a"}, {1100, "b"}, {1400, "c"}}));
    ASSERT_TRUE(log.waitFor("4"));
    EXPECT_GE(log.segments()[2].arrived - log.segments()[1].arrived, 290ms);
}

// Those that were not read for longest are opened again when they are due, unless they are others by then.
TEST_F(tReplayTest, playsTenThousandFilesWithTwoHundredDescriptorsAndNoneByTheIndexOfAnother)
{
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit few{200, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
    const auto name = [&](std::size_t i) { return dir.file(std::to_string(100'000 + i) + ".data"); };
    const auto make = [&](std::size_t i) { recordByHand(name(i), {{5, "a"}, {6, "b"}}, true, 2'100); };
    for (std::size_t i = 0; i < 10'000; ++i)
        make(i);
    log.react = [&](const std::string& word) {
        if (word != "1" || std::filesystem::exists(dir.file("old")))
            return;
        std::filesystem::rename(name(9'999), dir.file("old"));
        make(9'999);
    };
    open(dir.string());
    EXPECT_TRUE(log.waitFor("4"));
    ::setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(player->GetUnreadCnt(), 2u);
    const auto segments = log.segments();
    ASSERT_EQ(segments.size(), 19'998u);
    for (std::size_t i = 0; i < segments.size(); ++i)
        ASSERT_EQ(segments[i].file, name(i % 9'999));
}
