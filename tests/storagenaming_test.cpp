#include "KestovaStorage/internal/storagenaming.h"

#include <cstdlib>
#include <gtest/gtest.h>

using namespace storage;

namespace
{
constexpr std::time_t cMoment = 1715934600;        // 2024-05-17 08:30:00 in UTC
constexpr tTimes_s cClockIsSetAfter = 1668154271;  // 2022-11-11 11:11:11 three hours east of Greenwich

class tStorageNamingTest : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        ::setenv("TZ", "TST-3", 1);
        ::tzset();
    }
};
}  // namespace

TEST_F(tStorageNamingTest, numbersAFolderBehindTheGreatestOfTheRoot)
{
    const struct
    {
        naming::tPaths entries;
        unsigned int number;
    } cases[] = {
        {{}, 0},
        {{"/r/other", "/r/x"}, 0},
        {{"/r/Data_000007_2024.01.02"}, 8},
        {{"/r/Data_000002_2024.01.02", "/r/Data_000010_2023.01.01"}, 11},
        {{"/r/Data_000003_2024.01.02", "/r/zzz"}, 4},             // no "Data_": dropped
        {{"/r/Data_000003_2024.01.02", "/r/notData_000009"}, 0},  // greatest, and begins with none of D, a, t, _
        {{"/r/Data_x"}, 1},
        {{"/r/Data_"}, 1},
        {{"/r/Data_12"}, 13},
        {{"/r/Data_0000123"}, 13},  // six digits count
        {{"/r/Data_999999_2024.01.02"}, 1000000},
        {{"/r/aData_000005"}, 1},  // one character of the set is enough; "_00000" is no number
        {{"/Data_r/a"}, 1},
        {{"/Data_r/zzz"}, 0},
        {{"/Data_r/"}, 0},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.entries.empty() ? "nothing" : *c.entries.rbegin());
        EXPECT_EQ(naming::nextFolderNumber(c.entries), c.number);
    }
}

TEST_F(tStorageNamingTest, numbersAFileBehindTheGreatestOfTheFolder)
{
    const struct
    {
        naming::tPaths files;
        unsigned int number;
    } cases[] = {
        {{}, 0},
        {{"/f/0000_2024.data"}, 1},
        {{"/f/0041_x.data", "/f/0007_x.data"}, 42},
        {{"/f/0003_x.tar.data"}, 4},
        {{"/f/0003_x.dat"}, 0},  // lacks the suffix: dropped
        {{"/f/0003_x.data", "/f/zzz.txt"}, 4},
        {{"/f/abcd_x.data"}, 1},
        {{"/f/12_x.data"}, 0},
        {{"/f/10000_x.data"}, 0},  // the "_" is not behind four characters
        {{"/f/9999_x.data", "/f/10000_x.data"}, 10000},
        {{"0005_in the working folder.data"}, 6},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.files.empty() ? "nothing" : *c.files.rbegin());
        EXPECT_EQ(naming::nextFileNumber(c.files, ".data"), c.number);
    }
}

TEST_F(tStorageNamingTest, composesNamesOfPaddedNumbersAndLabels)
{
    EXPECT_EQ(naming::folderName(3, "2024.05.17"), "Data_000003_2024.05.17");
    EXPECT_EQ(naming::folderName(1000000, "2024.05.17"), "Data_1000000_2024.05.17");
    EXPECT_EQ(naming::fileName(1, "2024-05-17_09-12-41", "radar", ".data"), "0001_2024-05-17_09-12-41_radar.data");
    EXPECT_EQ(naming::fileName(10000, "2024-05-17_09-12-41", "", ".d"), "10000_2024-05-17_09-12-41.d");
}

TEST_F(tStorageNamingTest, labelsInLocalTime)
{
    EXPECT_EQ(naming::timeYmdHMSToString(cMoment), "2024-05-17_11-30-00");
    EXPECT_EQ(naming::timeYmdToString(cMoment), "2024.05.17");
    EXPECT_EQ(naming::timeYmdToString(cMoment + 13 * 3600), "2024.05.18");
    EXPECT_EQ(naming::timeYmToString(cMoment), "2024.05");
    EXPECT_EQ(naming::timeSecToString(3600 + 5 * 60 + 9), "0001_05_09");
    EXPECT_EQ(naming::timeSecToString(12345 * 3600 + 59 * 60 + 59), "12345_59_59");
}

TEST_F(tStorageNamingTest, takesTheGivenTimeEvenWhileTheClockIsNotSet)
{
    tTimes_s start = 0;
    EXPECT_EQ(naming::storageTimLabel(cMoment * 1000 + 999, true, 5, start), "2024-05-17_11-30-00");
    EXPECT_EQ(naming::storageTimLabel(cMoment * 1000 + 999, false, 5, start), "2024.05.17");
    EXPECT_EQ(naming::storageTimLabel(999, true, 5, start), "1970-01-01_03-00-00");
    EXPECT_EQ(start, 0u);
}

TEST_F(tStorageNamingTest, labelsWithElapsedTimeUntilTheClockIsSet)
{
    tTimes_s start = 0;
    EXPECT_EQ(naming::storageTimLabel(0, true, cClockIsSetAfter - 3909, start), "0000_00_00");
    EXPECT_EQ(start, cClockIsSetAfter - 3909);
    EXPECT_EQ(naming::storageTimLabel(0, true, cClockIsSetAfter, start), "0001_05_09");
    EXPECT_EQ(naming::storageTimLabel(0, false, cClockIsSetAfter, start), "0001_05_09");
    EXPECT_EQ(naming::storageTimLabel(0, true, cClockIsSetAfter + 1, start), "2022-11-11_11-11-12");
    EXPECT_EQ(naming::storageTimLabel(0, false, cClockIsSetAfter + 1, start), "2022.11.11");
    EXPECT_EQ(start, cClockIsSetAfter - 3909);
}
