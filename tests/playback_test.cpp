// When and in which order a replay delivers its segments: the clock and the timeline.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <random>
#include <tuple>
#include <utility>

#include "KestovaStorage/internal/playback/openedfiles.h"
#include "KestovaStorage/internal/playback/playclock.h"
#include "KestovaStorage/internal/playback/playkey.h"
#include "KestovaStorage/internal/playback/timeline.h"
#include "support/recording.h"
#include "support/tempdir.h"

using namespace storage;
using namespace std::chrono_literals;

namespace
{
constexpr double cInfinity = std::numeric_limits<double>::infinity();
constexpr double cNaN = std::numeric_limits<double>::quiet_NaN();
constexpr std::uint64_t cFirst = 1'700'000'000'000ull << 16;
constexpr std::uint64_t cSpan = 10'000ull << 16;
const tPlayClock::tTime cStart{100h};

class tPlayClockTest : public testing::Test
{
protected:
    std::uint64_t msAt(tPlayClock::tTime now) const { return timeOfKey(clock.position(now) - cFirst); }
    tPlayClock clock;
};
}  // namespace

TEST_F(tPlayClockTest, ticksAtTheSpeedOfTheTable)
{
    const std::tuple<double, std::uint64_t, std::uint64_t> cases[] = {
        {10.001, 10, 0}, {20, 10, 0},         {cInfinity, 10, 0}, {0.0999, 0, 10}, {0.01, 0, 10}, {0, 0, 10},
        {-3, 0, 10},     {-cInfinity, 0, 10}, {1.0001, 1, 0},     {1.5, 1, 0},     {2, 2, 0},     {9.99, 9, 0},
        {10.0, 10, 0},   {1.0, 0, 0},         {cNaN, 0, 0},       {0.1, 0, 10},    {0.25, 0, 4},  {0.3, 0, 3},
        {0.5, 0, 2},     {0.51, 0, 1},        {0.999, 0, 1}};
    for (const auto& [rate, fast, slow] : cases)
    {
        SCOPED_TRACE(rate);
        clock.setSpeed(speedFor(rate), cStart);
        clock.start(cFirst, cStart);
        for (const std::uint64_t passed : {0u, 110u, 1'100'000u})  // the first tick comes at once
            EXPECT_EQ(msAt(cStart + passed * 1ms), (passed / (1 + slow) + 1) * std::max<std::uint64_t>(fast, 1));
    }
}

TEST_F(tPlayClockTest, isExactlyAsFastAsAnExactSpeedAndRefusesNoSpeeds)
{
    for (const double speed : {0.001, 0.3, 0.75, 1.0, 1.5, 9.99, 100.25, 1e6})
    {
        const double wanted = 86'400'000 * speed;
        clock.setSpeed(exactSpeedFor(speed).value(), cStart);
        clock.start(cFirst, cStart);
        EXPECT_NEAR(static_cast<double>(msAt(cStart + 24h)), wanted, 1.5) << speed;
        EXPECT_NEAR(static_cast<double>(msAt(clock.dueTime(cFirst + (123'456'789ull << 16)))), 123'456'789, 1) << speed;
    }
    for (const double none : {0.0, -1.5, 0.000999, 1'000'000.1, cInfinity, -cInfinity, cNaN})
        EXPECT_FALSE(exactSpeedFor(none)) << none;
}

TEST_F(tPlayClockTest, findsTheStartForAnyFraction)
{
    const std::uint64_t most = UINT64_MAX, end = cFirst + cSpan, digits = (1ull << 60) - 1;  // more than a double has
    const std::tuple<double, std::uint64_t, std::uint64_t, std::uint64_t> cases[] = {
        {0, cFirst, end, cFirst},
        {0.5, cFirst, end, cFirst + cSpan / 2},
        {2, cFirst, end, cFirst + 2 * cSpan},
        {-0.1, cFirst, end, cFirst - cSpan / 10},
        {-1e30, cFirst, end, 0},
        {-cInfinity, cFirst, end, 0},
        {cInfinity, cFirst, end, most},
        {cNaN, cFirst, end, cFirst},
        {1, cFirst, cFirst + digits, cFirst + digits},
        {0.7, cFirst, cFirst, cFirst},
        {1, 1, most, most}};
    for (const auto& [fraction, first, last, start] : cases)
        EXPECT_EQ(startKeyFor(fraction, first, last), start) << fraction;
}

TEST_F(tPlayClockTest, isDueWhenThePositionIsReachedAndNotBefore)
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

TEST_F(tPlayClockTest, doesNotMoveWhilePaused)
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

TEST_F(tPlayClockTest, neitherGainsNorLosesWhenTheSpeedIsSet)
{
    clock.start(cFirst, cStart);
    for (int i = 1; i <= 100'000; ++i)
        clock.setSpeed(speedFor(1), cStart + i * 170us);
    EXPECT_EQ(msAt(cStart + 17s), 17'001u);
    clock.setSpeed(speedFor(0.1), cStart);
    clock.start(cFirst, cStart);
    clock.setSpeed(speedFor(10), cStart + 10ms);  // one tick of 11 ms, not yet over: no credit for time spent slow
    EXPECT_LE(msAt(cStart + 10ms), 1u + 10u);
}

TEST_F(tPlayClockTest, movesWithoutStepsForWhatIsDueToTheMicrosecond)
{
    const auto usAt = [this](tPlayClock::tTime now) {
        return static_cast<double>(clock.exactPosition(now) - cFirst) * 1000 / cKeysPerMs;
    };
    const auto dueAfter_us = [this](std::uint64_t us) {
        return static_cast<double>(
                   (clock.exactDueTime(exactKey(cFirst >> 16, static_cast<std::uint32_t>(us))) - cStart).count()) /
               1000;
    };
    clock.start(cFirst, cStart);
    EXPECT_NEAR(usAt(cStart + 1234us), 1234, 0.1);  // begins where it starts, a tick behind the other position
    EXPECT_NEAR(dueAfter_us(40'700), 40'700, 0.1);
    clock.setSpeed(speedFor(3), cStart + 10'300us);
    EXPECT_NEAR(usAt(cStart + 10'300us), 10'300, 0.1) << "no jump at a change of speed";
    EXPECT_NEAR(dueAfter_us(40'300), 20'300, 0.1);
    clock.setPaused(true, cStart + 20'300us);
    EXPECT_NEAR(usAt(cStart + 1h), 40'300, 0.1);
    clock.setSpeed(speedFor(0.5), cStart + 30ms);
    clock.setPaused(false, cStart + 40ms);
    EXPECT_NEAR(usAt(cStart + 40'300us), 40'400, 0.1);  // half speed is a third by its table
    clock.forgetDelay(cStart + 50ms, cStart + 41ms);
    EXPECT_NEAR(dueAfter_us(40'400), 49'300, 0.2);
}

TEST_F(tPlayClockTest, staysAtTheEndOfTimeInsteadOfWrapping)
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

namespace
{
using tTimes = std::vector<std::uint64_t>;
using tPlayed = std::tuple<std::uint64_t, std::size_t, std::uint64_t>;  // key, file, place in the recording
constexpr std::uint64_t cDay = 1'700'000'000'000;

// The play order by its rules, segment by segment; all keys from a time's first one up to its hint are in use.
std::map<std::uint64_t, tPlayed> oneByOne(const std::vector<tTimes>& files)
{
    std::map<std::uint64_t, tPlayed> order;
    std::map<std::uint64_t, std::uint64_t> hints;
    for (std::size_t file = 0; file < files.size(); ++file)
    {
        std::uint64_t run = 0;
        for (std::size_t i = 0; i < files[file].size(); ++i)
        {
            const std::uint64_t time = files[file][i];
            run = i != 0 && time == files[file][i - 1] ? run + 1 : 0;
            std::uint64_t key = std::max((time << 16) + run, hints[time]);
            while (order.count(key) != 0)
                ++key;
            hints[time] = key + 1;
            order[key] = {key, file, i};
        }
    }
    return order;
}

class tTimelineTest : public testing::Test
{
protected:
    // A record's pos keeps its place in the recording: building may sort an index.
    void build(
        const std::vector<tTimes>& files, const tTimeline::tCancelled& cancelled = [] { return false; })
    {
        m_indexes.assign(files.size(), {});
        m_blockTimes.assign(files.size(), {});
        std::vector<tTimelineFile> described;
        for (std::size_t file = 0; file < files.size(); ++file)
        {
            const tTimes& times = files[file];
            std::size_t run = 0, longest = 0;
            for (std::size_t i = 0; i < times.size(); ++i)
            {
                m_indexes[file].push_back(encode(tNormalIndexTable{times[i], i, 1}));
                longest = std::max(longest, run = i != 0 && times[i] == times[i - 1] ? run + 1 : 1);
            }
            described.push_back({m_indexes[file], std::is_sorted(times.begin(), times.end()), longest});
            if (inBlocks && described.back().sorted)
                leaveOnDisk(file, described.back());
        }
        timeline.build(described, cancelled, [this](std::uint32_t file, std::size_t block, tIndexBlock& to) {
            const auto from = std::span(m_indexes.at(file)).subspan(block * cIndexBlock);
            std::copy_n(from.begin(), std::min(from.size(), to.size()), to.begin());
        });
    }
    void leaveOnDisk(std::size_t file, tTimelineFile& described)
    {
        for (std::size_t i = 0; i < m_indexes[file].size(); i += cIndexBlock)
            m_blockTimes[file].push_back(timeOf(m_indexes[file][i]));
        described.count = std::exchange(described.index, {}).size();
        described.blockTimes = m_blockTimes[file];
        described.lastTime = described.count != 0 ? timeOf(m_indexes[file].back()) : 0;
    }
    std::vector<tPlayed> walk(std::uint64_t startKey)
    {
        std::vector<tPlayed> walked;
        tTimeline::tCursor cursor(timeline, startKey);
        for (tTimelineSegment segment{}; cursor.next(segment);)
        {
            EXPECT_EQ(cursor.record(), m_indexes.at(segment.file).at(segment.record));
            walked.emplace_back(segment.key, segment.file, decodeNormal(cursor.record()).pos);
        }
        return walked;
    }
    // Everything agrees with the order found one by one, walked from the start and from keys all over the place.
    void expectOrder(const std::map<std::uint64_t, tPlayed>& order, std::size_t everyNth)
    {
        std::vector<tPlayed> expected;
        for (const auto& [key, segment] : order)
            expected.push_back(segment);
        ASSERT_EQ(timeline.size(), expected.size());
        EXPECT_EQ(timeline.firstKey(), order.empty() ? 0 : order.begin()->first);
        EXPECT_EQ(timeline.lastKey(), order.empty() ? 0 : order.rbegin()->first);
        for (std::size_t i = 0; i < expected.size(); i += everyNth)
        {
            const std::uint64_t key = std::get<0>(expected[i]);
            ASSERT_TRUE(std::ranges::equal(walk(key), std::span(expected).subspan(i))) << "from key " << key;
            ASSERT_TRUE(std::ranges::equal(walk(key + 1), std::span(expected).subspan(i + 1))) << "behind key " << key;
        }
        ASSERT_TRUE(walk(0) == expected);
    }

    bool inBlocks = false;  // the indexes of sorted files are read block by block
    std::vector<std::vector<tIndexSlot>> m_indexes;
    std::vector<std::vector<std::uint64_t>> m_blockTimes;
    tTimeline timeline;
};
}  // namespace

TEST_F(tTimelineTest, givesManySmallRecordingsTheKeysFoundOneByOne)
{
    std::mt19937 random(17);
    for (int round = 0; round < 250; ++round)
    {
        SCOPED_TRACE(round);
        const std::uint64_t first = std::vector<std::uint64_t>{1, cDay, cTimeLimit - 6}[random() % 3];
        std::vector<tTimes> files(random() % 5);
        for (tTimes& times : files)
        {
            times.resize(random() % 40);
            for (std::uint64_t& time : times)
                time = first + random() % (1 + random() % 6);
            if (random() % 2 == 0)
                std::sort(times.begin(), times.end());
        }
        inBlocks = round % 2 == 1;
        build(files);
        ASSERT_NO_FATAL_FAILURE(expectOrder(oneByOne(files), 1));
    }
}

TEST_F(tTimelineTest, letsAFullMillisecondRunOverIntoTheNext)
{
    tTimes alternating, neighbours(66'000, cDay);
    for (std::size_t i = 0; i < 140'000; ++i)
        alternating.push_back(cDay + i % 2);
    neighbours.insert(neighbours.end(), {cDay + 1, cDay + 1, cDay + 2});
    tTimes backwards(neighbours.rbegin(), neighbours.rend());
    const std::vector<std::vector<tTimes>> cases = {
        {tTimes(65'536, cDay), {cDay + 1}},              // exactly full
        {tTimes(65'535, cDay), {cDay, cDay, cDay + 1}},  // one too many in two files
        {backwards, {cDay, cDay + 1}},
        {{cDay + 1}, alternating, {cDay, cDay, cDay + 1}, neighbours}};
    for (const std::vector<tTimes>& files : cases)
    {
        build(files);
        ASSERT_NO_FATAL_FAILURE(expectOrder(oneByOne(files), 30'011)) << files.size();
        inBlocks = !inBlocks;
    }
}

TEST_F(tTimelineTest, mergesIndexesThatStayOnDiskBlockByBlock)
{
    inBlocks = true;
    std::vector<tTimes> files;
    for (const std::size_t size : {1u, 1023u, 1024u, 1025u, 5000u, 2048u})
    {
        tTimes& times = files.emplace_back(size);
        for (std::size_t i = 0; i < size; ++i)
            times[i] = cDay + i / 3 + (size == 2048 ? 1'000 : 0);
    }
    build(files);
    ASSERT_NO_FATAL_FAILURE(expectOrder(oneByOne(files), 509));
}

TEST_F(tTimelineTest, leavesOutWhatTheLastMillisecondHasNoKeyFor)
{
    build({tTimes(65'540, cTimeLimit - 1), {cDay}});
    const std::vector<tPlayed> walked = walk(0);
    ASSERT_GE(walked.size(), 65'536u);
    EXPECT_LE(walked.size(), 65'537u);
    EXPECT_EQ(walked.front(), tPlayed(keyOfTime(cDay), 1, 0));
    EXPECT_EQ(walked[1], tPlayed(keyOfTime(cTimeLimit - 1), 0, 0));
}

TEST_F(tTimelineTest, stopsBuildingOnceCancelled)
{
    int asked = 0;
    build({tTimes(200'000, cDay)}, [&] { return ++asked == 3; });
    EXPECT_EQ(asked, 3);
    timeline.clear();
    EXPECT_EQ(timeline.size(), 0u);
    EXPECT_TRUE(walk(0).empty());
}

TEST(tOpenedFilesTest, opensAFileUnderItsNewNameIfItIsCompressedMeanwhile)
{
    const tTempDir dir;
    for (const char* name : {"a.data", "b.data", "c.data"})
        recordByHand(dir.file(name), {{1000, name}});
    tOpenedFiles files;
    files.open({dir.string()}, ".data", [&] {
        std::filesystem::remove(dir.file("c.data"));
        if (std::filesystem::exists(dir.file("b.data")))
            std::filesystem::rename(dir.file("b.data"), dir.file("b.tar.data"));
        return false;
    });
    EXPECT_EQ(files.timeline().size(), 2u);
}
