// Two recordings compared: what is the same, lost, changed, moved and late, against a reference that is simple and
// slow, and on recordings of which the differences are known.
#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <random>

#include "KestovaRecordings/comparison.h"
#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/internal/streamcomparison.h"
#include "support/capturefile.h"
#include "support/recording.h"
#include "support/tempdir.h"

using namespace recordings;

namespace
{
using tSequence = std::vector<std::uint64_t>;  // a number stands for a message

std::uint64_t longestCommon(const tSequence& a, const tSequence& b)
{
    std::vector<std::uint64_t> row(b.size() + 1);
    for (const std::uint64_t message : a)
    {
        std::uint64_t diagonal = 0;
        for (std::size_t j = 0; j < b.size(); ++j)
        {
            const std::uint64_t above = row[j + 1];
            row[j + 1] = message == b[j] ? diagonal + 1 : std::max(above, row[j]);
            diagonal = above;
        }
    }
    return row[b.size()];
}

// How many messages both have, in any order.
std::uint64_t common(const tSequence& a, const tSequence& b)
{
    std::map<std::uint64_t, std::int64_t> left;
    for (const std::uint64_t message : a)
        ++left[message];
    return static_cast<std::uint64_t>(
        std::ranges::count_if(b, [&](std::uint64_t message) { return left[message]-- > 0; }));
}

// Gives both sequences to a comparison in an order that the random numbers choose.
tStreamComparison::tCounts compared(const tSequence& a, const tSequence& b, std::mt19937& random)
{
    tComparisonState state;
    tStreamComparison stream(state);
    std::size_t i = 0, j = 0;
    while (i < a.size() || j < b.size())
    {
        const auto timeA = static_cast<std::int64_t>(i) * 1000, timeB = static_cast<std::int64_t>(j) * 1000;
        if (i < a.size() && j < b.size() && a[i] == b[j] && stream.agrees() && random() % 4 != 0)
        {
            stream.takeEqual({timeA, timeB}, a[i], [&] { return a[i]; });
            ++i, ++j;
        }
        else if (j == b.size() || (i < a.size() && random() % 2 == 0))
            stream.take(eSideA, {a[i++], timeA});
        else
            stream.take(eSideB, {b[j++], timeB});
    }
    stream.finish();
    EXPECT_EQ(state.waiting, (std::array<std::size_t, 2>{}));
    return stream.counts();
}

class tComparisonTest : public testing::Test
{
protected:
    static constexpr std::uint64_t cTime = 1'715'940'000'250;

    static std::string package(const std::string& payload, tReadWriteType kind = eGpsDev, unsigned group = 9)
    {
        const std::string info{1, 2, eReadType, static_cast<char>(kind), 0};
        return "Quorvale" + info + littleEndian(0, 4) + littleEndian(0x000011ef | group << 24, 4) +
               littleEndian(6000 + group, 2) + littleEndian(1, 8) + littleEndian(payload.size(), 2) + payload +
               "ZQ_Radar";
    }
    // Messages with numbers, a millisecond apart.
    static tSegments numbered(std::uint64_t count, std::uint64_t time = cTime, std::uint64_t from = 0)
    {
        tSegments made;
        for (std::uint64_t i = 0; i < count; ++i)
            made.push_back({time + i, package("message " + std::to_string(from + i))});
        return made;
    }
    static tSegments identical(std::uint64_t count)
    {
        tSegments made;
        for (std::uint64_t i = 0; i < count; ++i)
            made.push_back({cTime + i * 10, package("still here")});
        return made;
    }
    static tSegments without(tSegments segments, std::size_t from, std::size_t count)
    {
        const auto first = segments.begin() + static_cast<std::ptrdiff_t>(from);
        segments.erase(first, first + static_cast<std::ptrdiff_t>(count));
        return segments;
    }
    static tSegments later(tSegments segments, std::uint64_t ms)
    {
        for (tSegment& segment : segments)
            segment.time += ms;
        return segments;
    }
    tRecordingComparison compare(const tSegments& a, const tSegments& b, tCompareOptions options = {}) const
    {
        recordByHand(dir.file("a.data"), a);
        recordByHand(dir.file("b.data"), b);
        options.a = dir.file("a.data");
        options.b = dir.file("b.data");
        return compare(options);
    }
    static tRecordingComparison compare(const tCompareOptions& options)
    {
        return compareRecordings(options, [](const tCompareProgress&) { return true; });
    }
    // The one stream.
    tStreamDifference stream(const tSegments& a, const tSegments& b, const tCompareOptions& options = {}) const
    {
        const tRecordingComparison found = compare(a, b, options);
        EXPECT_EQ(found.streams.size(), 1u);
        return found.streams.empty() ? tStreamDifference() : found.streams.front();
    }
    static std::vector<std::uint64_t> counts(const tStreamDifference& row)
    {
        return {row.same, row.onlyA, row.onlyB, row.changed, row.moved, row.late};
    }
    using tCounts = std::vector<std::uint64_t>;

    tTempDir dir;
};
}  // namespace

TEST_F(tComparisonTest, findsTheLongestCommonSubsequenceOfShortStreams)
{
    std::mt19937 random(1);
    for (int round = 0; round < 3000; ++round)
    {
        const auto sequence = [&, alphabet = 1 + random() % 9](std::size_t length) {
            tSequence made(length);
            std::ranges::generate(made, [&] { return 1 + random() % alphabet; });
            return made;
        };
        const tSequence a = sequence(random() % 60), b = sequence(random() % 60);
        const tStreamComparison::tCounts found = compared(a, b, random);
        SCOPED_TRACE(round);
        ASSERT_EQ(found.same, longestCommon(a, b));
        ASSERT_EQ(found.same + found.moved, common(a, b));
        ASSERT_EQ(found.same + found.moved + found.changed + found.onlyA, a.size());
        ASSERT_EQ(found.same + found.moved + found.changed + found.onlyB, b.size());
        ASSERT_EQ(found.first.has_value(), a != b);
    }
}

TEST_F(tComparisonTest, findsTheLongestCommonSubsequenceOfLongStreamsWithFewDifferences)
{
    std::mt19937 random(2);
    for (const std::uint64_t alphabet : {2u, 50u, 1'000'000u})
    {
        tSequence a(4000);
        std::ranges::generate(a, [&] { return 1 + random() % alphabet; });
        tSequence b = a;
        for (int edit = 0; edit < 40; ++edit)
        {
            const auto place = b.begin() + static_cast<std::ptrdiff_t>(random() % b.size());
            if (edit % 2 == 0)
                b.erase(place);
            else
                b.insert(place, 1 + random() % alphabet);
        }
        const std::uint64_t same = compared(a, b, random).same, longest = longestCommon(a, b);
        EXPECT_LE(same, longest);
        EXPECT_GE(same + (alphabet == 2 ? 5 : 0), longest) << "of few messages another window may have been better";
    }
}

TEST_F(tComparisonTest, equalRecordingsAreEqualWhateverTheirClocks)
{
    const tRecordingComparison found = compare(numbered(20'000), later(numbered(20'000), 86'400'000));
    EXPECT_TRUE(found.equal());
    EXPECT_EQ(counts(found.streams.at(0)), (tCounts{20'000, 0, 0, 0, 0, 0}));
    EXPECT_EQ(found.clock.value().offsetUs, 86'400'000e3);
    EXPECT_EQ(found.clock->deviationMaxUs, 0);
}

TEST_F(tComparisonTest, oneLostMessageIsOneDifference)
{
    const tSegments all = numbered(30'000);
    const tStreamDifference row = stream(all, without(all, 12'345, 1));
    EXPECT_EQ(counts(row), (tCounts{29'999, 1, 0, 0, 0, 0}));
    EXPECT_EQ(row.first->aUs, static_cast<std::int64_t>(all[12'345].time) * 1000);
    EXPECT_FALSE(row.first->bUs);
    EXPECT_EQ(counts(stream(without(all, 0, 1), all)), (tCounts{29'999, 0, 1, 0, 0, 0}));
}

TEST_F(tComparisonTest, timeTellsWhichOfIdenticalMessagesIsLost)
{
    const tSegments all = identical(5000);
    const tStreamDifference row = stream(all, without(without(all, 3000, 1), 1000, 1), {.toleranceMs = 5});
    EXPECT_EQ(counts(row), (tCounts{4998, 2, 0, 0, 0, 0}));
    EXPECT_EQ(row.first->aUs, static_cast<std::int64_t>(all[1000].time) * 1000);
    const tStreamDifference block = stream(without(all, 500, 1000), all, {.toleranceMs = 5});
    EXPECT_EQ(counts(block), (tCounts{4000, 0, 1000, 0, 0, 0}));
}

TEST_F(tComparisonTest, aBlockThatOneSideLacksIsOnlyInTheOther)
{
    const tSegments all = numbered(60'000);
    EXPECT_EQ(counts(stream(all, without(all, 30'000, 1000))), (tCounts{59'000, 1000, 0, 0, 0, 0}));
    tSegments inserted = numbered(2'500);
    for (std::uint64_t i = 0; i < 50'000; ++i)
        inserted.push_back({cTime + 2500, package("more " + std::to_string(i))});
    std::ranges::move(numbered(2'500, cTime + 2500, 2'500), std::back_inserter(inserted));
    EXPECT_EQ(counts(stream(numbered(5'000), inserted)), (tCounts{5'000, 0, 50'000, 0, 0, 0}));
}

TEST_F(tComparisonTest, aLongerBlockThanMemoryHoldsIsOnlyInTheOther)
{
    tSegments all = numbered(460'000);
    for (std::size_t i = 0; i < all.size(); i += 50)
        all[i].bytes = package("alive", eRadarCheck, 20);
    const tRecordingComparison found = compare(all, later(without(all, 20'000, 250'000), 5000));
    ASSERT_EQ(found.streams.size(), 2u);
    EXPECT_EQ(counts(found.streams[0]), (tCounts{205'800, 245'000, 0, 0, 0, 0}));
    EXPECT_EQ(counts(found.streams[1]), (tCounts{4'200, 5'000, 0, 0, 0, 0}));
}

TEST_F(tComparisonTest, aPartIsFoundWhateverTheClock)
{
    const tSegments all = numbered(450'000), part = later(without(all, 0, 300'000), 0 - std::uint64_t{7'000'000});
    EXPECT_EQ(counts(stream(all, part)), (tCounts{150'000, 300'000, 0, 0, 0, 0}));
    EXPECT_EQ(counts(stream(part, all)), (tCounts{150'000, 0, 300'000, 0, 0, 0}));
}

TEST_F(tComparisonTest, nothingInCommonIsChangedAsFarAsBothHaveIt)
{
    EXPECT_EQ(counts(stream(numbered(300'000), numbered(310'000, cTime, 1'000'000))),
              (tCounts{0, 0, 10'000, 300'000, 0, 0}));
}

TEST_F(tComparisonTest, tellsChangedAndMovedMessages)
{
    const tSegments all = numbered(3000);
    tSegments changed = all;
    changed[7].bytes = package("other");
    tStreamDifference row = stream(all, changed);
    EXPECT_EQ(counts(row), (tCounts{2999, 0, 0, 1, 0, 0}));
    EXPECT_EQ(row.first->aUs, row.first->bUs);
    EXPECT_EQ(row.first->aUs, static_cast<std::int64_t>(all[7].time) * 1000);
    tSegments exchanged = all;
    std::swap(exchanged[1000].bytes, exchanged[1001].bytes);
    EXPECT_EQ(counts(stream(all, exchanged)), (tCounts{2999, 0, 0, 0, 1, 0}));
}

TEST_F(tComparisonTest, judgesTimeWithATolerance)
{
    const tSegments all = numbered(1000);
    tSegments slow = later(all, 500);
    for (std::size_t i = 990; i < 1000; ++i)
        slow[i].time += 21;
    EXPECT_TRUE(compare(all, slow).equal());
    EXPECT_TRUE(compare(all, slow, {.toleranceMs = 21}).equal());
    const tRecordingComparison found = compare(all, slow, {.toleranceMs = 20});
    EXPECT_FALSE(found.equal());
    EXPECT_EQ(found.streams.at(0).late, 10u);
    EXPECT_EQ(found.streams.at(0).first->aUs, static_cast<std::int64_t>(all[990].time) * 1000);
    EXPECT_EQ(found.clock->offsetUs, 500e3);
    EXPECT_EQ(found.clock->deviationP50Us, 0);
    EXPECT_EQ(found.clock->deviationP99Us, 0);
    EXPECT_EQ(found.clock->deviationMaxUs, 21e3);
}

TEST_F(tComparisonTest, comparesStreamsByThemselves)
{
    tSegments a, b;
    for (std::uint64_t i = 0; i < 2000; ++i)
    {
        a.push_back({cTime + i, package("spoke " + std::to_string(i), eImageStream, 1)});
        a.push_back({cTime + i, package("gps " + std::to_string(i))});
    }
    b = a;
    for (std::size_t i = 0; i < b.size(); i += 2)
        std::swap(b[i].bytes, b[i + 1].bytes);
    b.push_back({cTime + 5000, "no package"});
    const tRecordingComparison found = compare(a, b);
    ASSERT_EQ(found.streams.size(), 3u);
    EXPECT_EQ(found.streams[0].key.name(), "raw");
    EXPECT_EQ(counts(found.streams[0]), (tCounts{0, 0, 1, 0, 0, 0}));
    EXPECT_EQ(counts(found.streams[1]), (tCounts{2000, 0, 0, 0, 0, 0}));
    EXPECT_EQ(counts(found.streams[2]), (tCounts{2000, 0, 0, 0, 0, 0}));
    EXPECT_TRUE(compare(a, b, {.streams = parseStreams({"gpsDev"})}).equal());
}

TEST_F(tComparisonTest, comparesACaptureByGroup)
{
    tCapture capture;
    capture.add(tFrame{.payload = "one", .to = "239.17.0.9", .port = 6009});
    capture.add(tFrame{.payload = "two", .to = "239.17.0.8", .port = 6008});
    capture.add(tFrame{.payload = "three", .to = "239.17.0.9", .port = 6009});
    tCompareOptions options{.a = capture.writeTo(dir.file("a.pcap")), .b = dir.file("b.data")};
    recordByHand(options.b,
                 {{cTime, package("one")}, {cTime, package("two", eAisDev, 8)}, {cTime + 2, package("three")}});
    const tRecordingComparison found = compare(options);
    EXPECT_TRUE(found.equal());
    ASSERT_EQ(found.streams.size(), 2u);
    EXPECT_EQ(found.streams[0].key.name(), "aisDev");
    EXPECT_EQ(found.streams[1].key.address(), "239.17.0.9:6009");
    options.streams = parseStreams({"gpsDev"});
    EXPECT_EQ(compare(options).streams.size(), 1u) << "a group of the recording that is not chosen";
    recordByHand(options.b = dir.file("c.data"), {{cTime, package("one")}, {cTime + 2, package("three")}});
    EXPECT_FALSE(compare(options).equal()) << "a group that the recording lost";
    options.b = options.a;
    EXPECT_THROW(compare(options), tFailure);
}

TEST_F(tComparisonTest, ignoresTheTimeThatAReplayPutsIntoImageStates)
{
    std::string state = "\x03\xC4" + std::string(127, 's');
    const tSegments a{{cTime, package(state, eImageState, 3)}};
    state[114] = 't';
    const tSegments b{{cTime + 9000, package(state, eImageState, 3)}};
    EXPECT_EQ(stream(a, b).changed, 1u);
    EXPECT_TRUE(compare(a, b, {.ignoreTime = true}).equal());
    state[113] = 't';
    EXPECT_FALSE(compare(a, {{cTime, package(state, eImageState, 3)}}, {.ignoreTime = true}).equal());
}

TEST_F(tComparisonTest, isCancelledAndFailsForWhatIsNone)
{
    recordByHand(dir.file("a.data"), numbered(10));
    const tCompareOptions options{.a = dir.file("a.data"), .b = dir.file("a.data")};
    EXPECT_FALSE(compareRecordings(options, [](const tCompareProgress&) { return false; }).complete);
    EXPECT_THROW(compare({.a = dir.file("none"), .b = dir.file("a.data")}), tFailure);
    putBytes(dir.file("b.data"), 0, "no recording, no capture");
    EXPECT_THROW(compare({.a = dir.file("a.data"), .b = dir.file("b.data")}), tFailure);
}
