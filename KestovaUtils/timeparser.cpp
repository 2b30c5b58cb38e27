#include "KestovaUtils/timeparser.h"

#include <chrono>
#include <cstdio>
#include <ctime>
#include <limits>

namespace utils
{
namespace time
{
namespace
{
using tSystemClock = std::chrono::system_clock;

bool hasForm(const std::string& text, const char* form)
{
    std::size_t i = 0;
    for (; form[i] != '\0' && i < text.size(); ++i)
    {
        const bool digit = text[i] >= '0' && text[i] <= '9';
        if (form[i] == '0' ? !digit : text[i] != form[i])
            return false;
    }
    return form[i] == '\0' && i == text.size();
}

// hasForm() has checked the digits.
int numberAt(const std::string& text, std::size_t first, std::size_t digits)
{
    int number = 0;
    for (std::size_t i = first; i < first + digits; ++i)
        number = number * 10 + (text[i] - '0');
    return number;
}

int daysOf(int year, int month)
{
    static constexpr int cDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return month == 2 && leap ? 29 : cDays[month - 1];
}

// mktime accepts February 30 as March 1 or 2.
bool exists(int year, int month, int day, int hour, int minute, int second)
{
    return month >= 1 && month <= 12 && day >= 1 && day <= daysOf(year, month) && hour <= 23 && minute <= 59 &&
           second <= 59;
}
}  // namespace

tTimes_ms tTimeParser::GetCurrentTime_ms()
{
    const auto now = tSystemClock::now().time_since_epoch();
    return static_cast<tTimes_ms>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

tTimes_s tTimeParser::GetCurrentTime_s()
{
    return static_cast<tTimes_s>(GetCurrentTime_ms() / 1000);
}

tTimes_s tTimeParser::String2Time_s(const std::string& text)
{
    if (!hasForm(text, "0000-00-00 00:00:00"))
        return 0;
    std::tm local{};
    const int year = numberAt(text, 0, 4);
    const int month = numberAt(text, 5, 2);
    local.tm_mday = numberAt(text, 8, 2);
    local.tm_hour = numberAt(text, 11, 2);
    local.tm_min = numberAt(text, 14, 2);
    local.tm_sec = numberAt(text, 17, 2);
    if (!exists(year, month, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec))
        return 0;
    local.tm_year = year - 1900;
    local.tm_mon = month - 1;
    local.tm_isdst = -1;  // mktime decides whether summer time applies
    const std::time_t seconds = std::mktime(&local);
    if (seconds < 0 || static_cast<std::uint64_t>(seconds) > std::numeric_limits<tTimes_s>::max())
        return 0;
    return static_cast<tTimes_s>(seconds);
}

std::string tTimeParser::Time_ms2String(tTimes_ms time)
{
    const auto seconds = static_cast<std::time_t>(time / 1000);
    std::tm local{};
    if (::localtime_r(&seconds, &local) == nullptr)
        return std::string();
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d", local.tm_year + 1900, local.tm_mon + 1,
                  local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, static_cast<int>(time % 1000));
    return text;
}
}  // namespace time
}  // namespace utils
