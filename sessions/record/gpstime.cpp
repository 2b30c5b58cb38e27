#include "sessions/record/gpstime.h"

#include <charconv>
#include <chrono>
#include <cmath>

namespace session
{
namespace
{
// Takes the text before the next comma, or the rest.
std::string_view takeField(std::string_view& rest)
{
    const std::size_t end = rest.find(',');
    const std::string_view field = rest.substr(0, end);
    rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    return field;
}

// Returns the number that the whole text is.
std::optional<unsigned int> numberOf(std::string_view digits)
{
    unsigned int number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (digits.empty() || error != std::errc() || end != digits.data() + digits.size())
        return std::nullopt;
    return number;
}

// Returns the ms of "hhmmss" or "hhmmss.ss".
std::optional<std::uint64_t> timeOfDay(std::string_view field)
{
    if (field.size() < 6)
        return std::nullopt;
    const auto hour = numberOf(field.substr(0, 2)), minute = numberOf(field.substr(2, 2));
    double seconds = 0.0;
    const std::string_view text = field.substr(4);
    const auto [end, error] =
        std::from_chars(text.data(), text.data() + text.size(), seconds, std::chars_format::fixed);
    if (!hour || !minute || *hour > 23 || *minute > 59 || error != std::errc() || end != text.data() + text.size() ||
        !(seconds >= 0.0 && seconds < 61.0))
        return std::nullopt;
    return (*hour * 60u + *minute) * 60'000u + static_cast<std::uint64_t>(std::lround(seconds * 1000.0));
}

std::optional<std::uint64_t> timeOn(std::optional<unsigned int> year, std::optional<unsigned int> month,
                                    std::optional<unsigned int> day, std::optional<std::uint64_t> ofDay)
{
    using namespace std::chrono;
    if (!year || !month || !day || !ofDay || *year > 9999)
        return std::nullopt;
    const year_month_day date(std::chrono::year(static_cast<int>(*year)), std::chrono::month(*month),
                              std::chrono::day(*day));
    const auto days = date.ok() ? sys_days(date).time_since_epoch().count() : -1;
    if (days < 0)
        return std::nullopt;
    return static_cast<std::uint64_t>(days) * 86'400'000u + *ofDay;
}

std::optional<std::uint64_t> timeOfRmc(std::string_view fields)
{
    const auto ofDay = timeOfDay(takeField(fields));
    if (takeField(fields) != "A")
        return std::nullopt;
    for (int i = 0; i < 6; ++i)  // position, speed and course
        takeField(fields);
    const std::string_view date = takeField(fields);  // "ddmmyy"
    if (date.size() != 6)
        return std::nullopt;
    auto year = numberOf(date.substr(4));
    if (year)
        *year += *year < 80 ? 2000 : 1900;
    return timeOn(year, numberOf(date.substr(2, 2)), numberOf(date.substr(0, 2)), ofDay);
}

std::optional<std::uint64_t> timeOfZda(std::string_view fields)
{
    const auto ofDay = timeOfDay(takeField(fields));
    const auto day = numberOf(takeField(fields)), month = numberOf(takeField(fields));
    return timeOn(numberOf(takeField(fields)), month, day, ofDay);
}

// `sentence` begins behind the "$" and ends before the line end. Removes the checksum.
bool isWhole(std::string_view& sentence)
{
    const std::size_t star = sentence.find('*');
    if (star == std::string_view::npos)
        return true;
    unsigned int sum = 0, stated = 0;
    for (const char c : sentence.substr(0, star))
        sum ^= static_cast<unsigned char>(c);
    const std::string_view digits = sentence.substr(star + 1, 2);
    std::from_chars(digits.data(), digits.data() + digits.size(), stated, 16);
    sentence = sentence.substr(0, star);
    return digits.size() == 2 && stated == sum;
}

std::optional<std::uint64_t> timeOfSentence(std::string_view sentence)
{
    const std::string_view type = sentence.substr(0, sentence.find(','));
    if (type.size() != 5 || (!type.ends_with("RMC") && !type.ends_with("ZDA")) || !isWhole(sentence))
        return std::nullopt;
    const std::string_view fields = sentence.substr(std::min<std::size_t>(6, sentence.size()));
    return type.ends_with("RMC") ? timeOfRmc(fields) : timeOfZda(fields);
}
}  // namespace

std::optional<std::uint64_t> gpsTimeIn(std::string_view message)
{
    for (std::size_t at = message.find('$'); at != std::string_view::npos; at = message.find('$', at + 1))
    {
        const std::string_view sentence = message.substr(at + 1);
        if (const auto time = timeOfSentence(sentence.substr(0, sentence.find_first_of("\r\n$"))))
            return time;
    }
    return std::nullopt;
}
}  // namespace session
