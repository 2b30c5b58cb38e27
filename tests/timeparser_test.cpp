#include "KestovaUtils/timeparser.h"

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <limits>

using utils::time::tTimeParser;

namespace
{
// Local time is a fixed zone during a test: an hour ahead of UTC, two in summer.
class tTimeParserTest : public testing::Test
{
protected:
    tTimeParserTest()
    {
        const char* zone = std::getenv("TZ");
        m_hadZone = zone != nullptr;
        m_zone = m_hadZone ? zone : "";
        setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
        tzset();
    }
    ~tTimeParserTest() override
    {
        if (m_hadZone)
            setenv("TZ", m_zone.c_str(), 1);
        else
            unsetenv("TZ");
        tzset();
    }

private:
    bool m_hadZone;
    std::string m_zone;
};
}  // namespace

TEST_F(tTimeParserTest, readsLocalTimeInWinterAndSummer)
{
    EXPECT_EQ(tTimeParser::String2Time_s("2022-11-11 11:11:11"), 1668161471U);
    EXPECT_EQ(tTimeParser::String2Time_s("2024-05-17 08:30:00"), 1715927400U);
    EXPECT_EQ(tTimeParser::String2Time_s("2024-02-29 00:00:00"), 1709161200U);
}

TEST_F(tTimeParserTest, givesZeroForTextOfAnotherForm)
{
    for (const char* text : {"", "2022-11-11", "2022-11-11 11:11", "2022-11-11 11:11:11 ", " 2022-11-11 11:11:11",
                             "2022-11-11T11:11:11", "2022/11/11 11:11:11", "22-11-11 11:11:11", "2022-1-11 11:11:11",
                             "2022-11-11 11:11:1x", "2024-05-17 08:30:00.250", "2022-+1-11 11:11:11"})
        EXPECT_EQ(tTimeParser::String2Time_s(text), 0U) << text;
}

TEST_F(tTimeParserTest, givesZeroForTimesThatDoNotExist)
{
    for (const char* text :
         {"2023-02-29 00:00:00", "1900-02-29 00:00:00", "2022-00-11 11:11:11", "2022-13-11 11:11:11",
          "2022-11-00 11:11:11", "2022-11-31 11:11:11", "2022-11-11 24:00:00", "2022-11-11 11:60:11",
          "2022-11-11 11:11:60", "1969-12-31 00:00:00", "2106-02-08 00:00:00", "9999-12-31 23:59:59"})
        EXPECT_EQ(tTimeParser::String2Time_s(text), 0U) << text;
}

TEST_F(tTimeParserTest, writesMillisecondsInLocalTime)
{
    EXPECT_EQ(tTimeParser::Time_ms2String(1715927400250), "2024-05-17 08:30:00.250");
    EXPECT_EQ(tTimeParser::Time_ms2String(1668161471007), "2022-11-11 11:11:11.007");
    EXPECT_EQ(tTimeParser::Time_ms2String(0), "1970-01-01 01:00:00.000");
    EXPECT_EQ(tTimeParser::Time_ms2String(std::numeric_limits<tTimes_ms>::max()).substr(0, 9), "584556019");
}

TEST_F(tTimeParserTest, readsBackWhatItWrites)
{
    for (tTimes_ms time = 1'000'000'000'000; time < 1'800'000'000'000; time += 86'399'999'000)
    {
        const std::string text = tTimeParser::Time_ms2String(time);
        ASSERT_EQ(tTimeParser::String2Time_s(text.substr(0, 19)), time / 1000) << text;
    }
}

TEST_F(tTimeParserTest, tellsTheWallClock)
{
    const auto wanted = static_cast<tTimes_ms>(std::time(nullptr)) * 1000;
    const tTimes_ms now = tTimeParser::GetCurrentTime_ms();
    EXPECT_GE(now, wanted);
    EXPECT_LT(now, wanted + 60'000);
    EXPECT_LE(now / 1000, tTimeParser::GetCurrentTime_s());
}
