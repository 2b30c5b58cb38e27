#include "sessions/report/places.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <fmt/format.h>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "KestovaUtils/timeparser.h"
#include "sessions/report/units.h"

namespace session
{
using recordings::tMoment;

namespace
{
using utils::time::tTimeParser;

constexpr double cEarliestEpochMs = 1e9;         // a plain number is a time from here on, an error below
constexpr double cLatestMs = 281474976710655.0;  // time stamps have 48 bits
constexpr std::size_t cCalendarSize = 19;        // "2024-05-17 08:30:00"

bool s_utc = false;  // set while the command line is parsed

// Returns the number that a text of digits alone is; nothing for any other text.
std::optional<int> digits(std::string_view text)
{
    int value = 0;
    for (const char c : text)
    {
        if (c < '0' || c > '9')
            return std::nullopt;
        value = value * 10 + (c - '0');
    }
    return text.empty() ? std::nullopt : std::optional(value);
}

// Returns the seconds since the epoch of "2024-05-17 08:30:00" in UTC. String2Time_s has checked its form.
double utcSeconds(const std::string& calendar)
{
    const auto field = [&](std::size_t at, std::size_t size) { return digits(calendar.substr(at, size)).value_or(0); };
    const std::chrono::year_month_day day{std::chrono::year(field(0, 4)),
                                          std::chrono::month(static_cast<unsigned int>(field(5, 2))),
                                          std::chrono::day(static_cast<unsigned int>(field(8, 2)))};
    const auto days = std::chrono::sys_days(day).time_since_epoch().count();
    return static_cast<double>(days) * 86'400.0 + field(11, 2) * 3600.0 + field(14, 2) * 60.0 + field(17, 2);
}

// Returns the seconds by which a zone is ahead of UTC: "Z", "+02", "+02:00", "-0330".
std::optional<double> zoneSeconds(std::string_view text)
{
    if (text == "Z" || text == "z")
        return 0.0;
    std::string rest(text.substr(1));
    if (rest.size() == 5 && rest[2] == ':')
        rest.erase(2, 1);
    const auto hours = digits(std::string_view(rest).substr(0, 2));
    const auto minutes = rest.size() == 2 ? std::optional(0) : digits(std::string_view(rest).substr(2));
    if ((rest.size() != 2 && rest.size() != 4) || !hours || !minutes || *hours > 14 || *minutes > 59)
        return std::nullopt;
    const double ahead = *hours * 3600.0 + *minutes * 60.0;
    return text.front() == '-' ? -ahead : ahead;
}

// Returns the ms of ".25", 0 for no text.
std::optional<double> fractionMs(std::string_view text)
{
    if (text.empty())
        return 0.0;
    const auto fraction =
        text.starts_with('.') && digits(text.substr(1, 9)) ? plainNumber("0" + std::string(text)) : std::nullopt;
    return fraction ? std::optional(std::round(*fraction * 1000.0)) : std::nullopt;
}

// Parses "2024-05-17 08:30:00", with a fraction and a zone where they are given, and a T in place of the blank.
std::optional<double> calendarMs(std::string_view text)
{
    std::string calendar(text.substr(0, cCalendarSize));
    if (calendar.size() == cCalendarSize && (calendar[10] == 'T' || calendar[10] == 't'))
        calendar[10] = ' ';
    const tTimes_s local = tTimeParser::String2Time_s(calendar);
    if (local == 0)
        return std::nullopt;
    const std::string_view rest = text.substr(cCalendarSize);
    const std::size_t zone = std::min(rest.find_first_of("Zz+-"), rest.size());
    const auto fraction = fractionMs(rest.substr(0, zone));
    const auto ahead = zone == rest.size() ? std::optional(0.0) : zoneSeconds(rest.substr(zone));
    if (!fraction || !ahead)
        return std::nullopt;
    const bool isLocal = zone == rest.size() && !s_utc;
    return (isLocal ? static_cast<double>(local) : utcSeconds(calendar) - *ahead) * 1000.0 + *fraction;
}

std::optional<tMoment> signedMoment(const std::string& text)
try
{
    if (text.starts_with('+'))
        return tMoment{tMoment::eOffset, static_cast<double>(parseDuration(text.substr(1)))};
    if (text.starts_with('-'))
        return tMoment{tMoment::eFromEnd, static_cast<double>(parseDuration(text.substr(1)))};
    return tMoment{tMoment::eOffset, static_cast<double>(parseDuration(text))};
}
catch (const std::invalid_argument&)
{
    return std::nullopt;
}

std::optional<tMoment> numberMoment(double value)
{
    if (value <= 1.0)
        return tMoment{tMoment::eFraction, value};
    if (value >= cEarliestEpochMs && value <= cLatestMs)
        return tMoment{tMoment::eAbsolute, value};
    return std::nullopt;
}

std::optional<tMoment> momentOf(const std::string& text)
{
    if (const auto value = plainNumber(text))
        return numberMoment(*value);
    if (text.ends_with('%'))
    {
        const auto percent = plainNumber(text.substr(0, text.size() - 1));
        return percent && *percent <= 100.0 ? std::optional(tMoment{tMoment::eFraction, *percent / 100.0})
                                            : std::nullopt;
    }
    if (const auto absolute = calendarMs(text))
        return tMoment{tMoment::eAbsolute, *absolute};
    return signedMoment(text);
}
}  // namespace

void useUtc(bool on)
{
    s_utc = on;
}

std::string timeText(std::uint64_t ms)
{
    if (!s_utc)
        return tTimeParser::Time_ms2String(ms);
    const std::chrono::sys_time<std::chrono::milliseconds> time{std::chrono::milliseconds(ms)};
    const auto days = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day day(days);
    const std::chrono::hh_mm_ss clock(time - days);
    return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}.{:03}", static_cast<int>(day.year()),
                       static_cast<unsigned int>(day.month()), static_cast<unsigned int>(day.day()),
                       clock.hours().count(), clock.minutes().count(), clock.seconds().count(),
                       clock.subseconds().count());
}

tMoment parseMoment(const std::string& text)
{
    if (const auto moment = momentOf(text))
        return *moment;
    throw std::invalid_argument("'" + text +
                                "' is no place in a recording: write +90s, -90s, 50%, 00:01:30, \"2024-05-17 08:30:00\""
                                " or 2024-05-17T08:30:00Z");
}

std::uint64_t parseWhen(const std::string& text, std::uint64_t nowMs)
{
    constexpr std::size_t cDateSize = 10;
    auto moment = momentOf(text);
    if (!moment && text.size() == cDateSize)
        moment = momentOf(text + " 00:00:00");
    const bool isAgo =
        moment && !text.starts_with('+') && (moment->kind == tMoment::eFromEnd || moment->kind == tMoment::eOffset);
    if (isAgo)
        return nowMs - std::min(nowMs, static_cast<std::uint64_t>(moment->value));
    if (moment && moment->kind == tMoment::eAbsolute && moment->value >= 0.0)
        return static_cast<std::uint64_t>(moment->value);
    throw std::invalid_argument("'" + text +
                                "' is no time: write 2024-05-17, \"2024-05-17 08:30:00\", 2024-05-17T08:30:00Z, or 2h "
                                "or 3d for that long ago");
}
}  // namespace session
