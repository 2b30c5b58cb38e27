#include "KestovaStorage/internal/replayclock.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

#include "KestovaStorage/internal/segmentkey.h"

using namespace storage;
using namespace std::chrono_literals;

namespace
{
constexpr double cInfinity = std::numeric_limits<double>::infinity();
constexpr double cNaN = std::numeric_limits<double>::quiet_NaN();
constexpr std::uint64_t cFirst = 1'700'000'000'000ull << 16;
constexpr std::uint64_t cSpan = 10'000ull << 16;
const tReplayClock::tTime cStart{100h};

class tReplayClockTest : public testing::Test
{
protected:
    std::uint64_t msAt(tReplayClock::tTime now) const { return timeOfKey(clock.position(now) - cFirst); }
    tReplayClock clock;
};
}  // namespace

TEST_F(tReplayClockTest, takesTheSpeedsFromTheTable)
{
    const struct
    {
        double rate;
        int fast, slow;
    } cases[] = {{10.001, 10, 0}, {20, 10, 0},         {cInfinity, 10, 0}, {0.0999, 0, 10}, {0.01, 0, 10}, {0, 0, 10},
                 {-3, 0, 10},     {-cInfinity, 0, 10}, {1.0001, 1, 0},     {1.5, 1, 0},     {2, 2, 0},     {9.99, 9, 0},
                 {10.0, 10, 0},   {1.0, 0, 0},         {cNaN, 0, 0},       {0.1, 0, 10},    {0.25, 0, 4},  {0.3, 0, 3},
                 {0.5, 0, 2},     {0.51, 0, 1},        {0.999, 0, 1}};
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.rate);
        const tReplaySpeed speed = speedFor(c.rate);
        EXPECT_EQ(speed.fast, c.fast);
        EXPECT_EQ(speed.slow, c.slow);
    }
}

TEST_F(tReplayClockTest, findsTheStartForAnyFraction)
{
    const std::uint64_t most = UINT64_MAX, last = cFirst + cSpan;
    const struct
    {
        double fraction;
        std::uint64_t first, last, start;
    } cases[] = {{0, cFirst, last, cFirst},
                 {0.5, cFirst, last, cFirst + cSpan / 2},
                 {1, cFirst, last, last},
                 {2, cFirst, last, cFirst + 2 * cSpan},
                 {-0.1, cFirst, last, cFirst - cSpan / 10},
                 {-1e30, cFirst, last, 0},
                 {1e30, cFirst, last, most},
                 {cInfinity, cFirst, last, most},
                 {-cInfinity, cFirst, last, 0},
                 {cNaN, cFirst, last, cFirst},
                 {1, cFirst, cFirst + (1ull << 60) - 1, cFirst + (1ull << 60) - 1},  // more digits than a double has
                 {0.7, cFirst, cFirst, cFirst},
                 {0.7, 0, 0, 0},
                 {1, 1, most, most}};
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.fraction);
        EXPECT_EQ(startKeyFor(c.fraction, c.first, c.last), c.start);
    }
}

TEST_F(tReplayClockTest, keepsProgressBetweenFirstAndLast)
{
    const std::uint64_t last = cFirst + cSpan;
    EXPECT_EQ(progressOf(cFirst, cFirst, last), 0.0);
    EXPECT_EQ(progressOf(cFirst + cSpan / 4, cFirst, last), 0.25);
    EXPECT_EQ(progressOf(last, cFirst, last), 1.0);
    EXPECT_EQ(progressOf(last + 1, cFirst, last), 1.0);
    EXPECT_EQ(progressOf(cFirst - 1, cFirst, last), 0.0);
    EXPECT_EQ(progressOf(cFirst, cFirst, cFirst), 1.0);  // one segment: the end of the span
}

TEST_F(tReplayClockTest, ticksAtTheSpeedSet)
{
    const struct
    {
        double rate;
        std::uint64_t atOnce, after110Ms;
    } cases[] = {{1, 1, 111}, {1.5, 1, 111}, {3, 3, 333}, {20, 10, 1110}, {0.5, 1, 37}, {0.01, 1, 11}};
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.rate);
        clock.setSpeed(speedFor(c.rate), cStart);
        clock.start(cFirst, cStart);
        EXPECT_EQ(msAt(cStart), c.atOnce);
        EXPECT_EQ(msAt(cStart + 110ms), c.after110Ms);
        EXPECT_EQ(msAt(cStart + 1'100s), (c.after110Ms - c.atOnce) * 10'000 + (c.rate == 0.5 ? 6667 : c.atOnce));
    }
}

TEST_F(tReplayClockTest, isDueWhenThePositionIsReachedAndNotBefore)
{
    for (const double rate : {1.0, 4.0, 0.2})
    {
        clock.setSpeed(speedFor(rate), cStart);
        clock.start(cFirst, cStart);
        for (std::uint64_t key = cFirst; key < cFirst + (50ull << 16); key += 4'099)
        {
            const auto due = clock.dueTime(key);
            ASSERT_GE(clock.position(due), key);
            ASSERT_TRUE(due == cStart || clock.position(due - 1ns) < key) << rate << " " << key - cFirst;
        }
    }
}

TEST_F(tReplayClockTest, doesNotMoveWhilePaused)
{
    clock.start(cFirst, cStart);
    clock.setPaused(true, cStart + 10ms + 300us);
    clock.setPaused(true, cStart + 4s);
    EXPECT_EQ(msAt(cStart + 5s), 11u);
    clock.setSpeed(speedFor(2), cStart + 6s);
    EXPECT_EQ(msAt(cStart + 9s), 11u);
    clock.setPaused(false, cStart + 9s);
    EXPECT_EQ(msAt(cStart + 9s), 11u);
    EXPECT_EQ(msAt(cStart + 9s + 5ms), 21u);
}

TEST_F(tReplayClockTest, neitherGainsNorLosesWhenTheSpeedIsSetAgainAndAgain)
{
    clock.start(cFirst, cStart);
    for (int i = 1; i <= 100'000; ++i)
        clock.setSpeed(speedFor(1), cStart + i * 170us);
    EXPECT_EQ(msAt(cStart + 17s), 17'001u);
}

TEST_F(tReplayClockTest, givesTimeSpentSlowNoCreditWhenItGoesFast)
{
    clock.setSpeed(speedFor(0.1), cStart);
    clock.start(cFirst, cStart);
    clock.setSpeed(speedFor(10), cStart + 10ms);  // one tick of 11 ms, not yet over
    EXPECT_LE(msAt(cStart + 10ms), 1u + 10u);
}

TEST_F(tReplayClockTest, forgetsALongDelay)
{
    clock.start(cFirst, cStart);
    const auto due = clock.dueTime(cFirst + (100ull << 16));
    clock.forgetDelay(due + 7s, due);
    EXPECT_EQ(clock.dueTime(cFirst + (100ull << 16)), due + 7s);
    EXPECT_EQ(clock.dueTime(cFirst + (105ull << 16)), due + 7s + 5ms);
}

TEST_F(tReplayClockTest, staysAtTheEndOfTimeInsteadOfWrapping)
{
    clock.setSpeed(speedFor(10), cStart);
    clock.start(UINT64_MAX - 5, cStart);
    EXPECT_EQ(clock.position(cStart), UINT64_MAX);
    EXPECT_EQ(clock.position(cStart + 1h), UINT64_MAX);
    clock.setPaused(true, cStart + 2h);
    clock.setPaused(false, cStart + 3h);
    EXPECT_EQ(clock.dueTime(UINT64_MAX), cStart + 3h);
    clock.setSpeed(speedFor(0.01), cStart + 4h);
    clock.start(0, cStart + 4h);
    EXPECT_GT(clock.dueTime(UINT64_MAX), cStart + 24h * 365);  // far away, and no overflow on the way
}
