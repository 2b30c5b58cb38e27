#include "sessions/report/units.h"

#include <array>
#include <charconv>
#include <cmath>
#include <fmt/format.h>
#include <stdexcept>

namespace session
{
namespace
{
constexpr double cLatestMs = 281474976710655.0;  // time stamps have 48 bits

std::string scaled(double value, std::string_view unit)
{
    constexpr std::array<const char*, 5> cPrefixes = {"", "k", "M", "G", "T"};
    std::size_t i = 0;
    while (value >= 999.95 && i + 1 < cPrefixes.size())
    {
        value /= 1000.0;
        ++i;
    }
    return i == 0 ? fmt::format("{:.0f} {}", value, unit) : fmt::format("{:.1f} {}{}", value, cPrefixes[i], unit);
}

std::optional<double> withSuffix(std::string_view text, std::string_view suffix, double factor)
{
    if (!text.ends_with(suffix))
        return std::nullopt;
    const auto value = plainNumber(text.substr(0, text.size() - suffix.size()));
    return value ? std::optional(*value * factor) : std::nullopt;
}

// Parses "HH:MM:SS" or "MM:SS", the last field with a fraction.
std::optional<double> clockMs(std::string_view text)
{
    double seconds = 0.0;
    int fields = 0;
    for (bool more = true; more; ++fields)
    {
        const std::size_t colon = text.find(':');
        const auto field = plainNumber(text.substr(0, colon));
        if (!field || fields == 3)
            return std::nullopt;
        seconds = seconds * 60.0 + *field;
        more = colon != std::string_view::npos;
        text.remove_prefix(more ? colon + 1 : text.size());
    }
    return fields >= 2 ? std::optional(seconds * 1000.0) : std::nullopt;
}

std::optional<double> offsetMs(std::string_view text)
{
    for (const auto& [suffix, factor] :
         {std::pair{"ms", 1.0}, std::pair{"s", 1000.0}, std::pair{"m", 60'000.0}, std::pair{"h", 3'600'000.0},
          std::pair{"d", 86'400'000.0}, std::pair{"w", 604'800'000.0}})
    {
        if (const auto value = withSuffix(text, suffix, factor))
            return value;
    }
    return clockMs(text);
}

// Returns the bytes that a unit stands for: "", "B", "K", "kB", "KiB" to "T"; nothing for no unit.
std::optional<double> unitBytes(std::string_view unit)
{
    if (unit.ends_with('B'))
        unit.remove_suffix(1);
    const bool isBinary = unit.size() == 2 && unit.ends_with('i');
    if (isBinary)
        unit.remove_suffix(1);
    if (unit.empty())
        return 1.0;
    constexpr std::string_view cPrefixes = "KMGT";
    const std::size_t power = cPrefixes.find(unit == "k" ? 'K' : unit.front());
    return unit.size() == 1 && power != std::string_view::npos
               ? std::optional(std::pow(isBinary ? 1024.0 : 1000.0, static_cast<double>(power + 1)))
               : std::nullopt;
}
}  // namespace

std::string sizeText(std::uint64_t bytes)
{
    return scaled(static_cast<double>(bytes), "B");
}

std::string rateText(double bytesPerSecond)
{
    return scaled(bytesPerSecond, "B/s");
}

std::string durationText(std::uint64_t ms)
{
    return fmt::format("{:02}:{:02}:{:02}.{:03}", ms / 3'600'000, ms / 60'000 % 60, ms / 1000 % 60, ms % 1000);
}

std::string percentText(double fraction)
{
    return fmt::format("{:.1f} %", fraction * 100.0);
}

double perSecond(std::uint64_t n, std::uint64_t ms)
{
    return ms == 0 ? 0.0 : static_cast<double>(n) * 1000.0 / static_cast<double>(ms);
}

std::optional<double> plainNumber(std::string_view text)
{
    double value = 0.0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value) || value < 0.0)
        return std::nullopt;
    return value;
}

std::uint64_t parseDuration(const std::string& text)
{
    auto ms = offsetMs(text);
    if (const auto seconds = plainNumber(text))
        ms = *seconds * 1000.0;
    if (!ms || *ms > cLatestMs)
        throw std::invalid_argument("'" + text + "' is no duration: write 10, 2.5, 250ms, 5m, 2h, 3d, 2w or 00:01:30");
    return static_cast<std::uint64_t>(std::llround(*ms));
}

double parseDistance(const std::string& text)
{
    constexpr double cFarthest = 1e6;
    std::optional<double> metres = plainNumber(text);
    for (const auto& [suffix, factor] : {std::pair{"nm", 1852.0}, std::pair{"km", 1000.0}, std::pair{"m", 1.0}})
        metres = metres ? metres : withSuffix(text, suffix, factor);
    if (!metres || !(*metres > 0) || *metres > cFarthest)
        throw std::invalid_argument("'" + text + "' is no distance: write 6nm, 11112m or 3km, up to 1000km");
    return *metres;
}

std::uint64_t parseSize(const std::string& text)
{
    constexpr double cLargest = 1e18;
    const std::size_t end = text.find_last_of("0123456789.") + 1;  // npos + 1 is 0
    const auto value = plainNumber(std::string_view(text).substr(0, end));
    const auto unit = unitBytes(std::string_view(text).substr(end));
    if (!value || !unit || *value * *unit > cLargest)
        throw std::invalid_argument("'" + text + "' is no size: write 750M, 500G or 1.5T");
    return static_cast<std::uint64_t>(std::llround(*value * *unit));
}
}  // namespace session
