#include "KestovaStorage/internal/segmenttimeline.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <tuple>

#include "KestovaStorage/internal/segmentkey.h"

using namespace storage;

namespace
{
using tTimes = std::vector<std::uint64_t>;
using tSegment = std::tuple<std::uint64_t, std::size_t, std::uint64_t>;  // key, file, place in the recording
constexpr std::uint64_t cDay = 1'700'000'000'000;

// The play order as the rules tell it, segment by segment. All keys from a time's first one up to the hint are in use.
std::map<std::uint64_t, tSegment> oneByOne(const std::vector<tTimes>& files, bool hinted)
{
    std::map<std::uint64_t, tSegment> order;
    std::map<std::uint64_t, std::uint64_t> hints;
    for (std::size_t file = 0; file < files.size(); ++file)
    {
        std::uint64_t run = 0;
        for (std::size_t i = 0; i < files[file].size(); ++i)
        {
            const std::uint64_t time = files[file][i];
            run = i != 0 && time == files[file][i - 1] ? run + 1 : 0;
            std::uint64_t key = (time << 16) + run;
            if (hinted)
                key = std::max(key, hints[time]);
            while (order.count(key) != 0)
                ++key;
            hints[time] = key + 1;
            order[key] = {key, file, i};
        }
    }
    return order;
}

class tSegmentTimelineTest : public testing::Test
{
protected:
    // A record's pos keeps its place in the recording: building may sort an index.
    void build(
        const std::vector<tTimes>& files, const tSegmentTimeline::tCancelled& cancelled = [] { return false; })
    {
        m_indexes.clear();
        for (const tTimes& times : files)
        {
            std::vector<tIndexSlot>& index = m_indexes.emplace_back();
            for (std::size_t i = 0; i < times.size(); ++i)
                index.push_back(encode(tNormalIndexTable{times[i], i, 1}));
        }
        std::vector<tTimelineFile> described;
        for (std::size_t file = 0; file < files.size(); ++file)
        {
            const tTimes& times = files[file];
            std::size_t run = 0, longest = 0;
            for (std::size_t i = 0; i < times.size(); ++i)
                longest = std::max(longest, run = i != 0 && times[i] == times[i - 1] ? run + 1 : 1);
            described.push_back({m_indexes[file], std::is_sorted(times.begin(), times.end()), longest});
        }
        timeline.build(described, cancelled);
    }
    std::vector<tSegment> walk(std::uint64_t startKey)
    {
        std::vector<tSegment> walked;
        tSegmentTimeline::tCursor cursor(timeline, startKey);
        for (tTimelineSegment segment{}; cursor.next(segment);)
        {
            const tIndexSlot& slot = m_indexes.at(segment.file).at(segment.record);
            walked.emplace_back(segment.key, segment.file, decodeNormal(slot).pos);
        }
        return walked;
    }
    // Everything agrees with the order found one by one, walked from the start and from keys all over the place.
    void expectOrder(const std::map<std::uint64_t, tSegment>& order, std::size_t everyNth)
    {
        std::vector<tSegment> expected;
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

    std::vector<std::vector<tIndexSlot>> m_indexes;
    tSegmentTimeline timeline;
};
}  // namespace

TEST_F(tSegmentTimelineTest, givesManySmallRecordingsTheKeysFoundOneByOne)
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
        build(files);
        ASSERT_NO_FATAL_FAILURE(expectOrder(oneByOne(files, false), 1));
    }
}

TEST_F(tSegmentTimelineTest, letsAFullMillisecondRunOverIntoTheNext)
{
    tTimes alternating, neighbours(66'000, cDay);
    for (std::size_t i = 0; i < 140'000; ++i)
        alternating.push_back(cDay + i % 2);
    neighbours.insert(neighbours.end(), {cDay + 1, cDay + 1, cDay + 2});
    tTimes backwards(neighbours.rbegin(), neighbours.rend());
    const std::vector<std::vector<tTimes>> cases = {
        {tTimes(65'536, cDay), {cDay + 1}},              // exactly full
        {tTimes(65'535, cDay), {cDay, cDay, cDay + 1}},  // one too many in two files
        {neighbours},
        {backwards, {cDay, cDay + 1}},
        {alternating},
        {{cDay + 1}, alternating, {cDay, cDay, cDay + 1}, neighbours},
    };
    for (std::size_t i = 0; i < cases.size(); ++i)
    {
        SCOPED_TRACE(i);
        build(cases[i]);
        ASSERT_NO_FATAL_FAILURE(expectOrder(oneByOne(cases[i], true), 30'011));
    }
}

TEST_F(tSegmentTimelineTest, leavesOutWhatTheLastMillisecondHasNoKeyFor)
{
    build({tTimes(65'540, cTimeLimit - 1), {cDay}});
    const std::vector<tSegment> walked = walk(0);
    ASSERT_GE(walked.size(), 65'536u);
    EXPECT_LE(walked.size(), 65'537u);
    EXPECT_EQ(walked.front(), tSegment(keyOfTime(cDay), 1, 0));
    EXPECT_EQ(walked[1], tSegment(keyOfTime(cTimeLimit - 1), 0, 0));
}

TEST_F(tSegmentTimelineTest, stopsBuildingOnceCancelled)
{
    int asked = 0;
    build({tTimes(200'000, cDay)}, [&] { return ++asked == 3; });
    EXPECT_EQ(asked, 3);
    timeline.clear();
    EXPECT_EQ(timeline.size(), 0u);
    EXPECT_TRUE(walk(0).empty());
}
