// When a recording warns: of streams that fall silent, and of a disk that becomes full.
#include <gtest/gtest.h>

#include "UdpSocket/udpsocket.h"
#include "sessions/record/diskwatch.h"
#include "sessions/record/silencewatch.h"

namespace
{
using namespace std::chrono_literals;
using recordings::tStreamKey;
using session::tDiskWatch;
using session::tSilence;
using session::tSilenceWatch;
using tSteady = std::chrono::steady_clock;

class tSilenceWatchTest : public testing::Test
{
protected:
    static tStreamKey key(std::uint16_t port) { return tStreamKey::of(eGpsDev, net::transAddr("239.1.1.1"), port); }
    // Datagrams arrive on these ports every `period` for `time`; returns what is reported: "all silent 10", "1 back
    // 12".
    std::string run(std::initializer_list<std::uint16_t> ports, std::chrono::seconds time,
                    std::chrono::seconds period = 1s)
    {
        std::string said;
        for (const auto end = now + time; now < end;)
        {
            now += 1s;
            if ((now - start) % period == 0s)
                for (const std::uint16_t port : ports)
                    ++counts[key(port)].messages;
            for (const tSilence& one : watch.update(counts, now))
                said += (one.stream ? std::to_string(one.stream->port) : "all") + (one.begins ? " silent " : " back ") +
                        std::to_string(one.ms / 1000) + "; ";
        }
        return said;
    }

    const tSteady::time_point start{};
    tSteady::time_point now = start;
    recordings::tStreamCounts counts{{key(1), {}}, {key(2), {}}, {key(3), {}}};
    tSilenceWatch watch{start};
};
}  // namespace

TEST_F(tSilenceWatchTest, reportsThatNothingComesAtAllOnceAndItsEnd)
{
    EXPECT_EQ(run({}, 9s), "");
    EXPECT_EQ(run({}, 60s), "all silent 10; ");
    EXPECT_EQ(run({1}, 5s), "all back 70; ");
    EXPECT_EQ(run({}, 60s), "all silent 10; ");
}

TEST_F(tSilenceWatchTest, reportsAStreamThatFallsSilentButNoneThatNeverCame)
{
    EXPECT_EQ(run({1, 2}, 20s), "");
    EXPECT_EQ(run({1}, 40s), "2 silent 10; ");
    EXPECT_EQ(run({1, 2}, 20s), "2 back 41; ");
    EXPECT_EQ(run({}, 30s), "all silent 10; ");
    EXPECT_EQ(run({1, 2}, 9s), "all back 31; ");  // the streams come back with it
}

TEST_F(tSilenceWatchTest, waitsThreeIntervalsForAStreamThatIsSentOnceInAWhile)
{
    EXPECT_EQ(run({1}, 20s), "");
    EXPECT_EQ(run({1, 2}, 1s), "");
    for (int i = 0; i < 5; ++i)
    {
        EXPECT_EQ(run({1}, 8s), "");
        EXPECT_EQ(run({1, 2}, 1s), "");
    }
    EXPECT_EQ(run({1}, 26s), "");
    EXPECT_EQ(run({1}, 1s), "2 silent 27; ");
}

TEST(tDiskWatchTest, warnsBelowAGibibyteOnceUntilThereIsRoomAgain)
{
    constexpr std::uint64_t cGibibyte = 1ull << 30;
    tDiskWatch watch;
    tSteady::time_point now{};
    const auto warns = [&](std::uint64_t free) { return watch.update(free, 0, now += 1s).has_value(); };
    EXPECT_FALSE(warns(cGibibyte));
    EXPECT_TRUE(warns(cGibibyte - 1));
    EXPECT_FALSE(warns(cGibibyte - 2) || warns(cGibibyte + cGibibyte / 5) || warns(cGibibyte - 1));
    EXPECT_FALSE(warns(2 * cGibibyte));
    EXPECT_TRUE(warns(5));
}

TEST(tDiskWatchTest, warnsWhenLessThanAnHourIsLeftAtTheRateOfTheLastTenSeconds)
{
    constexpr std::uint64_t cRate = 10'000'000, cHour = 3600 * cRate;
    tDiskWatch watch;
    tSteady::time_point now{};
    std::uint64_t recorded = 0;
    const auto after = [&](std::uint64_t rate, std::uint64_t free) {
        recorded += rate;
        return watch.update(free, recorded, now += 1s);
    };
    for (int i = 0; i < 3; ++i)
        EXPECT_FALSE(after(100 * cRate, cHour));  // a burst at the start is no rate
    for (int i = 0; i < 20; ++i)
        after(cRate, 10 * cHour);
    EXPECT_FALSE(after(cRate, cHour));
    const auto left = after(cRate, cHour - cRate);
    ASSERT_TRUE(left);
    EXPECT_EQ(left->seconds, 3599u);
    EXPECT_EQ(left->bytesPerSecond, static_cast<double>(cRate));
    EXPECT_FALSE(after(cRate, cHour - 2 * cRate));
}
