#include "KestovaRecordings/internal/sentencefields.h"

#include <charconv>
#include <chrono>
#include <cmath>

namespace recordings
{
tSentenceFields::tSentenceFields(std::string_view body)
{
    while (m_count < cMost)
    {
        const std::size_t comma = body.find(',');
        m_fields[m_count++] = body.substr(0, comma);
        if (comma == std::string_view::npos)
            return;
        body.remove_prefix(comma + 1);
    }
}

std::optional<double> tSentenceFields::number(std::size_t i) const
{
    const std::string_view field = text(i);
    double value = 0;
    const auto [end, error] =
        std::from_chars(field.data(), field.data() + field.size(), value, std::chars_format::fixed);
    if (error != std::errc() || end != field.data() + field.size() || !std::isfinite(value))
        return std::nullopt;
    return value;
}

std::optional<double> tSentenceFields::degrees(std::size_t i) const
{
    const std::optional<double> value = number(i);
    return value && *value >= 0 && *value <= 360 ? value : std::nullopt;
}

std::optional<unsigned> tSentenceFields::whole(std::size_t i) const
{
    return digitsAt(text(i), 0, text(i).size());
}

std::optional<double> tSentenceFields::angle(std::size_t i, std::size_t digits, double largest, char positive,
                                             char negative) const
{
    const std::optional<double> value = number(i);
    const char hemisphere = letter(i + 1);
    if (!value || *value < 0 || !digitsAt(text(i), 0, digits) || (hemisphere != positive && hemisphere != negative))
        return std::nullopt;
    const double degrees = std::floor(*value / 100);
    const double minutes = *value - degrees * 100;
    const double angle = degrees + minutes / 60;
    if (minutes >= 60 || angle > largest)
        return std::nullopt;
    return hemisphere == positive ? angle : -angle;
}

std::optional<std::uint32_t> tSentenceFields::msOfDay(std::size_t i) const
{
    const std::string_view field = text(i);
    const auto hour = digitsAt(field, 0, 2), minute = digitsAt(field, 2, 2), second = digitsAt(field, 4, 2);
    const std::optional<double> all = number(i);
    if (!hour || !minute || !second || !all || *hour > 23 || *minute > 59 || *second > 59)
        return std::nullopt;
    const double fraction = *all - std::floor(*all);
    return ((*hour * 60 + *minute) * 60 + *second) * 1000 + static_cast<std::uint32_t>(std::lround(fraction * 1000));
}

std::optional<unsigned> digitsAt(std::string_view text, std::size_t at, std::size_t count)
{
    if (count == 0 || count > 9 || at + count > text.size())
        return std::nullopt;
    unsigned value = 0;
    for (const char c : text.substr(at, count))
    {
        if (c < '0' || c > '9')
            return std::nullopt;
        value = value * 10 + static_cast<unsigned>(c - '0');
    }
    return value;
}

std::optional<std::uint64_t> dateMs(unsigned year, unsigned month, unsigned day)
{
    const std::chrono::year_month_day date{std::chrono::year(static_cast<int>(year)), std::chrono::month(month),
                                           std::chrono::day(day)};
    if (year < 1970 || year > 9999 || !date.ok())
        return std::nullopt;
    const auto since = std::chrono::sys_days(date).time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::milliseconds(since).count());
}

std::uint64_t nearestMs(std::uint32_t msOfDay, std::uint64_t nearMs)
{
    constexpr std::uint64_t cDay = 86'400'000;
    const std::uint64_t time = nearMs / cDay * cDay + msOfDay;
    if (time > nearMs && time - nearMs > cDay / 2)
        return time >= cDay ? time - cDay : time;
    return nearMs > time && nearMs - time > cDay / 2 ? time + cDay : time;
}
}  // namespace recordings
