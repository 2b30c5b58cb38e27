#include "server/target.h"

#include <charconv>
#include <cmath>
#include <fmt/format.h>

#include "server/answers.h"

namespace server
{
namespace
{
constexpr std::uint64_t cMostExact = std::uint64_t(1) << 53;  // of what JSON and pages count with

int hexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

std::optional<std::string> decoded(std::string_view text, bool plusIsBlank)
{
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        char c = text[i];
        if (c == '%')
        {
            const int high = i + 2 < text.size() ? hexDigit(text[i + 1]) : -1;
            const int low = i + 2 < text.size() ? hexDigit(text[i + 2]) : -1;
            if (high < 0 || low < 0)
                return std::nullopt;
            c = static_cast<char>(high * 16 + low);
            i += 2;
        }
        else if (c == '+' && plusIsBlank)
            c = ' ';
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f)
            return std::nullopt;
        result += c;
    }
    return result;
}

bool readSegments(std::string_view path, tTarget& target)
{
    path.remove_prefix(1);
    while (!path.empty() || target.segments.empty())
    {
        const std::size_t end = path.find('/');
        const auto segment = decoded(path.substr(0, end), false);
        if (!segment || segment->empty() || *segment == "." || *segment == ".." ||
            segment->find_first_of("/\\") != std::string::npos)
            return false;
        target.segments.push_back(*segment);
        if (end == std::string_view::npos)
            return true;
        path.remove_prefix(end + 1);
    }
    return false;  // "/" at the end
}

bool readQuery(std::string_view query, tTarget& target)
{
    while (!query.empty())
    {
        const std::string_view part = query.substr(0, query.find('&'));
        query.remove_prefix(std::min(part.size() + 1, query.size()));
        if (part.empty())
            continue;
        const std::size_t equals = part.find('=');
        const auto key = decoded(part.substr(0, equals), true);
        const auto value =
            equals == std::string_view::npos ? std::optional<std::string>("") : decoded(part.substr(equals + 1), true);
        if (!key || !value || !target.query.emplace(*key, *value).second)
            return false;
    }
    return true;
}

template <typename tNumber>
std::optional<tNumber> parsed(const std::map<std::string, std::string>& query, const std::string& key, tNumber least,
                              tNumber most)
{
    const auto found = query.find(key);
    if (found == query.end())
        return std::nullopt;
    const std::string& text = found->second;
    tNumber value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || !(value >= least && value <= most))
        throw tRefusal(400, "bad_value", fmt::format("{} is no number from {} to {}", key, least, most));
    return value;
}
}  // namespace

std::optional<tTarget> parseTarget(std::string_view text)
{
    const std::size_t mark = text.find('?');
    const std::string_view path = text.substr(0, mark);
    if (!path.starts_with('/') || text.find('#') != std::string_view::npos)
        return std::nullopt;
    tTarget target;
    target.path = path;
    if (path != "/" && !readSegments(path, target))
        return std::nullopt;
    if (mark != std::string_view::npos && !readQuery(text.substr(mark + 1), target))
        return std::nullopt;
    return target;
}

std::optional<std::uint64_t> tTarget::number(const std::string& key, std::uint64_t least, std::uint64_t most) const
{
    return parsed<std::uint64_t>(query, key, least, std::min(most, cMostExact));
}

std::optional<double> tTarget::decimal(const std::string& key, double least, double most) const
{
    return parsed<double>(query, key, least, most);
}

bool tTarget::flag(const std::string& key) const
{
    const std::string value = text(key);
    if (value != "" && value != "0" && value != "1" && value != "false" && value != "true")
        throw tRefusal(400, "bad_value", key + " is neither 0 nor 1");
    return value == "1" || value == "true";
}

std::string tTarget::text(const std::string& key) const
{
    const auto found = query.find(key);
    return found == query.end() ? std::string() : found->second;
}
}  // namespace server
