// The spokes that a circle loop keeps, how it emits them, and how loops wait for each other.
#include <climits>
#include <gmock/gmock.h>
#include <random>

#include "KestovaStorage/internal/replay/spokeloop.h"
#include "support/replaylog.h"

using namespace Kestova;
using namespace std::chrono_literals;
using tAzimuths = std::vector<std::uint32_t>;

class tSpokeLoopTest : public testing::Test
{
protected:
    struct tLog : iCircleSpokeObserver, tReplayLog
    {
        void UpdateCircleSpokeReplay(const tSpokeString& s) override { UpdateReplayData(s.azm, 0, "", 0, ""); }
        std::size_t size() const { return segments().size(); }
        bool waitForSize(std::size_t n) const
        {
            return waitUntil([&] { return size() >= n; }, 20s);
        }
    };
    // Azimuths 0 to `last`, `count` of them.
    static void feed(tCircleSpokes& loop, std::uint32_t count, std::uint32_t last)
    {
        for (std::uint32_t i = 0; i < count; ++i)
            loop.feed({std::min(i, last), 0, 0, "s"});
    }
    // Trimming as it is defined, over everything that is kept.
    static void trim(tAzimuths& azimuths)
    {
        std::vector<std::ptrdiff_t> falls;
        for (std::size_t i = 1; i < azimuths.size(); ++i)
            if (azimuths[i] < azimuths[i - 1])
                falls.push_back(static_cast<std::ptrdiff_t>(i));
        if (falls.size() >= 2)
            azimuths.erase(azimuths.begin(), azimuths.begin() + falls[falls.size() - 2]);
    }

    tRevolutionBarrier sync;
    tLog log, otherLog;
    tCircleSpokes loop{&log, sync}, other{&otherLog, sync};
};

TEST_F(tSpokeLoopTest, keepsTheLastRevolutionAndTheOneInProgress)
{
    std::mt19937 random(7);
    tSpokeBuffer buffer;
    tAzimuths expected;
    for (std::uint32_t i = 0; i < 3'000; ++i)
    {
        expected.push_back(i < 25 ? i % 10 : i % 500 < 250 ? static_cast<std::uint32_t>(random()) % 1000 : i / 3 % 20);
        buffer.append({expected.back(), 0, 0, "s"});
        trim(expected);
        ASSERT_EQ(buffer.size(), expected.size()) << i;
        for (std::size_t k = 0; k < expected.size(); ++k)
            ASSERT_EQ(buffer[k].azm, expected[k]) << i;
        EXPECT_TRUE(i != 24 || (buffer.size() == 15 && buffer[9].azm == 9 && buffer[14].azm == 4));
    }
}

TEST_F(tSpokeLoopTest, letsTheOldestGoWhereTheAzimuthNeverFalls)
{
    tSpokeBuffer many, large;
    for (std::uint32_t i = 0; i < tSpokeBuffer::cMaxSpokes + 100; ++i)
        many.append({i < 10 ? i : i - 10, 0, 0, "s"});
    many.append({0, 0, 0, "s"});
    EXPECT_TRUE(many.size() == tSpokeBuffer::cMaxSpokes && many[0].azm == 91);
    for (std::uint32_t i = 0; i < 1'200; ++i)
        large.append({i, 0, 0, std::string(64 * 1024, 's')});
    EXPECT_EQ(large.size(), tSpokeBuffer::cMaxBytes / (64 * 1024));
}

TEST_F(tSpokeLoopTest, sendsManySpokesBackToBackAndOnePassInTwoSeconds)
{
    feed(loop, 4096, 4095);
    loop.start();
    ASSERT_TRUE(log.waitForSize(4097));
    const auto emitted = log.segments();
    EXPECT_LT(emitted[4095].arrived - emitted[0].arrived, emitted[4096].arrived - emitted[4095].arrived);
    EXPECT_GE(emitted[4096].arrived - emitted[0].arrived, 2010ms);
    EXPECT_EQ(emitted[4096].time, 0u);
}

TEST_F(tSpokeLoopTest, startsNoRevolutionBeforeTheOthersHaveComeToZeroButForThoseThatNeverDoOrStop)
{
    tLog ignored;
    tCircleSpokes level(&ignored, sync), empty(&ignored, sync);
    feed(loop, 10, 9);
    feed(other, 10, 9);
    feed(level, 4, 0);
    for (tCircleSpokes* each : {&loop, &level, &empty})
        each->start();
    ASSERT_TRUE(log.waitForSize(3));
    other.start();
    ASSERT_TRUE(log.waitForSize(11));
    ASSERT_GE(otherLog.size(), 10u);
    EXPECT_GT(log.segments()[10].arrived, otherLog.segments()[9].arrived);
    other.halt();
    other.wait();
    EXPECT_TRUE(log.waitForSize(31));  // two more revolutions
}

// The barrier alone: three loops turn; one is stopped at zero, and leaves, then another one leaves.
TEST_F(tSpokeLoopTest, countsNobodyWhoWasStoppedAndWaitsForNobodyWhoHasLeft)
{
    std::atomic<bool> turning{true}, stopping{true}, released{false};
    for (int i = 0; i < 3; ++i)
        sync.enter();
    std::thread first([&] { sync.arrive(turning), released = true; }), stopped([&] { sync.arrive(stopping); });
    EXPECT_FALSE(waitUntil([&] { return released.load(); }, 50ms));
    stopping = false;
    sync.wake();
    stopped.join();
    sync.leave();
    EXPECT_FALSE(waitUntil([&] { return released.load(); }, 50ms));
    sync.leave();
    EXPECT_TRUE(waitUntil([&] { return released.load(); }));
    first.join();
}

TEST_F(tSpokeLoopTest, keepsSpokesWhileItStandsOnly)
{
    feed(loop, 3, 2);
    for (int i = 0; i < 100; ++i)
    {
        loop.start();
        feed(loop, 1, 0);
        loop.halt();
        loop.wait();
    }
    EXPECT_EQ(loop.size(), 3u);
}

TEST_F(tSpokeLoopTest, startsAndStopsQuicklyAndTakesAnyNumberUpToALimitOfLoops)
{
    tSpokeLoops loops(&log);
    for (const int number : {-1, 0, INT_MAX})
        loops.feed(number, {number < 0 ? 2u : 1u, 0, 0, "s"});
    for (int i = 0; i < 300; ++i)  // a pass takes 2 s: waiting for its end would take longer than a test may
        loops.run(i % 3 != 2);
    loops.run(true);
    EXPECT_TRUE(log.waitForSize(2));
    loops.run(false);
    EXPECT_FALSE(waitUntil([&] { return log.size() != 2; }, 100ms));
    for (const auto& emitted : log.segments())
        EXPECT_EQ(emitted.time, 1u);
}

TEST_F(tSpokeLoopTest, keepsNoMoreLoopsThanItsLimit)
{
    tSpokeLoops loops(nullptr);
    testing::internal::CaptureStderr();
    for (std::size_t number = 0; number < tSpokeLoops::cMaxLoops; ++number)
        loops.feed(static_cast<int>(number) * 1000, {1, 0, 0, "s"});
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    testing::internal::CaptureStderr();
    for (const int number : {1, 0, 2})
        loops.feed(number, {1, 0, 0, "s"});
    const std::string printed = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), 1) << printed;
}
