// Rooms that only reckon: times and their texts, names and numbers of recordings, the kernel's drop counter.
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <limits>

#include "KestovaStorage/internal/datafile/naming.h"
#include "KestovaUtils/timeparser.h"
#include "UdpSocket/internal/dropcounter.h"

using namespace storage;
using utils::time::tTimeParser;

namespace
{
// Local time is a zone that the test chooses.
class tLocalTimeTest : public testing::Test
{
protected:
    explicit tLocalTimeTest(const char* zone)
    {
        ::setenv("TZ", zone, 1);
        ::tzset();
    }
};

// An hour ahead of UTC, two in summer.
struct tTimeParserTest : tLocalTimeTest
{
    tTimeParserTest() : tLocalTimeTest("CET-1CEST,M3.5.0,M10.5.0/3") {}
};

struct tStorageNamingTest : tLocalTimeTest
{
    using tNumbers = std::vector<std::pair<naming::tPaths, unsigned int>>;
    tStorageNamingTest() : tLocalTimeTest("TST-3") {}

    static constexpr std::time_t cMoment = 1715934600;        // 2024-05-17 08:30:00 in UTC
    static constexpr tTimes_s cClockIsSetAfter = 1668154271;  // 2022-11-11 11:11:11 three hours east of Greenwich
};
}  // namespace

TEST_F(tTimeParserTest, readsLocalTimeInWinterAndSummerAndBackWhatItWrites)
{
    EXPECT_EQ(tTimeParser::String2Time_s("2022-11-11 11:11:11"), 1668161471U);
    EXPECT_EQ(tTimeParser::String2Time_s("2024-05-17 08:30:00"), 1715927400U);
    EXPECT_EQ(tTimeParser::String2Time_s("2024-02-29 00:00:00"), 1709161200U);
    for (tTimes_ms time = 1'000'000'000'000; time < 1'800'000'000'000; time += 86'399'999'000)
        ASSERT_EQ(tTimeParser::String2Time_s(tTimeParser::Time_ms2String(time).substr(0, 19)), time / 1000);
}

TEST_F(tTimeParserTest, givesZeroForTextOfAnotherFormAndTimesThatDoNotExist)
{
    const std::string valid = "2022-11-11 11:11:11";
    const std::pair<std::size_t, std::string> changes[] = {
        {0, "1969"}, {0, "2106"}, {0, "9999"}, {4, "/"},   {5, "00"},  {5, "13"},  {5, "+1"}, {8, "00"},
        {8, "31"},   {10, "T"},   {11, "24"},  {14, "60"}, {17, "60"}, {17, "1x"}, {19, " "}, {19, ".250"}};
    for (const auto& [pos, text] : changes)
        EXPECT_EQ(tTimeParser::String2Time_s(std::string(valid).replace(pos, text.size(), text)), 0U) << text;
    for (const char* text : {"", "2022-11-11 11:11", " 2022-11-11 11:11:11", "22-11-11 11:11:11", "2022-1-11 11:11:11",
                             "2023-02-29 00:00:00", "1900-02-29 00:00:00"})
        EXPECT_EQ(tTimeParser::String2Time_s(text), 0U) << text;
}

TEST_F(tTimeParserTest, writesMillisecondsInLocalTime)
{
    EXPECT_EQ(tTimeParser::Time_ms2String(1715927400250), "2024-05-17 08:30:00.250");
    EXPECT_EQ(tTimeParser::Time_ms2String(1668161471007), "2022-11-11 11:11:11.007");
    EXPECT_EQ(tTimeParser::Time_ms2String(0), "1970-01-01 01:00:00.000");
    EXPECT_EQ(tTimeParser::Time_ms2String(std::numeric_limits<tTimes_ms>::max()).substr(0, 9), "584556019");
}

TEST_F(tTimeParserTest, readsTheWallClock)
{
    const auto before = static_cast<tTimes_s>(std::time(nullptr));
    EXPECT_GE(tTimeParser::GetCurrentTime_ms() / 1000, before);
    EXPECT_LE(tTimeParser::GetCurrentTime_ms() / 1000, tTimeParser::GetCurrentTime_s());
    EXPECT_LE(tTimeParser::GetCurrentTime_s(), static_cast<tTimes_s>(std::time(nullptr)) + 1);
}

TEST_F(tStorageNamingTest, numbersAFolderBehindTheGreatestOfTheRoot)
{
    const tNumbers cases = {{{}, 0},
                            {{"/r/other", "/r/x"}, 0},
                            {{"/r/Data_000007_2024.01.02"}, 8},
                            {{"/r/Data_000002_2024.01.02", "/r/Data_000010_2023.01.01"}, 11},
                            {{"/r/Data_000003_2024.01.02", "/r/zzz"}, 4},  // no "Data_": dropped
                            // Greatest, and begins with none of D, a, t, _.
                            {{"/r/Data_000003_2024.01.02", "/r/notData_000009"}, 0},
                            {{"/r/Data_x"}, 1},
                            {{"/r/Data_"}, 1},
                            {{"/r/Data_12"}, 13},
                            {{"/r/Data_0000123"}, 13},  // six digits count
                            {{"/r/Data_999999_2024.01.02"}, 1000000},
                            {{"/r/aData_000005"}, 1},  // one character of the set is enough; "_00000" is no number
                            {{"/Data_r/a"}, 1},
                            {{"/Data_r/zzz"}, 0},
                            {{"/Data_r/"}, 0}};
    for (const auto& [entries, number] : cases)
        EXPECT_EQ(naming::nextFolderNumber(entries), number) << testing::PrintToString(entries);
    EXPECT_EQ(naming::folderName(1000000, "2024.05.17"), "Data_1000000_2024.05.17");
}

TEST_F(tStorageNamingTest, numbersAFileBehindTheGreatestOfTheFolder)
{
    const tNumbers cases = {{{}, 0},
                            {{"/f/0000_2024.data"}, 1},
                            {{"/f/0041_x.data", "/f/0007_x.data"}, 42},
                            {{"/f/0003_x.tar.data"}, 4},
                            {{"/f/0003_x.dat"}, 0},  // lacks the suffix: dropped
                            {{"/f/0003_x.data", "/f/zzz.txt"}, 4},
                            {{"/f/abcd_x.data"}, 1},
                            {{"/f/12_x.data"}, 0},
                            {{"/f/10000_x.data"}, 0},  // the "_" is not behind four characters
                            {{"/f/9999_x.data", "/f/10000_x.data"}, 10000},
                            {{"0005_in the working folder.data"}, 6}};
    for (const auto& [files, number] : cases)
        EXPECT_EQ(naming::nextFileNumber(files, ".data"), number) << testing::PrintToString(files);
    EXPECT_EQ(naming::fileName(10000, "2024-05-17_09-12-41", "", ".d"), "10000_2024-05-17_09-12-41.d");
}

TEST_F(tStorageNamingTest, labelsWithTheGivenTimeElseWithElapsedTimeUntilTheClockIsSet)
{
    tTimes_s start = 0;
    EXPECT_EQ(naming::storageTimLabel(cMoment * 1000 + 999, true, 5, start), "2024-05-17_11-30-00");
    EXPECT_EQ(naming::storageTimLabel(cMoment * 1000 + 999, false, 5, start), "2024.05.17");
    EXPECT_EQ(naming::storageTimLabel(999, true, 5, start), "1970-01-01_03-00-00");
    EXPECT_EQ(start, 0u);
    EXPECT_EQ(naming::storageTimLabel(0, true, cClockIsSetAfter - 3909, start), "0000_00_00");
    EXPECT_EQ(start, cClockIsSetAfter - 3909);
    EXPECT_EQ(naming::storageTimLabel(0, true, cClockIsSetAfter, start), "0001_05_09");
    EXPECT_EQ(naming::storageTimLabel(0, false, cClockIsSetAfter, start), "0001_05_09");
    EXPECT_EQ(naming::storageTimLabel(0, true, cClockIsSetAfter + 1, start), "2022-11-11_11-11-12");
    EXPECT_EQ(naming::storageTimLabel(0, false, cClockIsSetAfter + 1, start), "2022.11.11");
    EXPECT_EQ(start, cClockIsSetAfter - 3909);
}

TEST(tDropCounterTest, takesTheNewestOfWhatIsToldAndGoesOnWhereTheKernelCounterWraps)
{
    net::tDropCounter counter;
    std::uint64_t dropped = 0;
    for (; dropped <= 0x3'0000'0007; dropped += 0x7000'0001)
    {
        counter.update(static_cast<std::uint32_t>(dropped));
        EXPECT_EQ(counter.total(), dropped);
    }
    counter.update(static_cast<std::uint32_t>(dropped - 0x7000'0001 - 13));  // rode with a datagram that had waited
    EXPECT_EQ(counter.total(), dropped - 0x7000'0001);
}
