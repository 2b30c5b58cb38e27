#include "KestovaRecordings/internal/sheetreader.h"

#include <algorithm>
#include <fmt/format.h>
#include <numeric>

#include "KestovaRecordings/internal/sheetfile.h"
#include "KestovaRecordings/internal/sheetformat.h"

namespace recordings
{
namespace
{
constexpr std::size_t cMostLevels = 8;
constexpr std::size_t cLongestKey = 64;
constexpr char cSpokePath[] = "radar.spoke";
constexpr std::size_t cLongestSpoke = 65'536;  // text of a layout

std::string asJson(const std::string& text)
{
    return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

bool areTimes(const std::vector<tGap>& gaps)
{
    return std::ranges::all_of(gaps, [](const tGap& gap) { return gap.fromMs <= gap.toMs; });
}

bool blocksFit(const tSheetParts& parts)
{
    const tSheetBlocks& blocks = parts.sheet.blocks;
    const std::uint64_t records = std::accumulate(blocks.records.begin(), blocks.records.end(), std::uint64_t(0));
    return parts.blocks == blocks.records.size() && parts.blocks == blocks.payloadCrc32c.size() &&
           parts.blocks == blocks.indexCrc32c.size() && records <= parts.sheet.records &&
           std::ranges::find(blocks.records, 0u) == blocks.records.end() &&
           (!parts.sumOfSums || *parts.sumOfSums == sumOfSums(parts.sheet));
}

// Without it nothing tells a damaged sheet from a foreign one.
bool hasIdentity(const tSheetParts& parts)
{
    if (!parts.sheet.first)
        return parts.hasForm && parts.sheet.records == 0;
    return parts.hasForm && parts.hasTime && parts.hasPosition && parts.hasLength;
}

// Where the lists of a sheet begin.
bool endsBeginning(const std::string& key)
{
    return key == "addresses" || key == "interface" || key == "losses" || key == "notes" || key == "streams";
}
}  // namespace

bool tSheetReader::fits()
{
    if (!m_problem.empty() || !isOfThisVersion())
        return false;
    if (!hasIdentity(m_parts))
        return fail("is damaged: it does not say whose it is");
    const tSheet& sheet = m_parts.sheet;
    if (sheet.firstMs > sheet.lastMs || !areTimes(sheet.silences) ||
        !std::ranges::all_of(sheet.streams, [](const tSheetStream& stream) {
            return stream.firstMs <= stream.lastMs && areTimes(stream.gaps);
        }))
        return fail("is damaged: it has times that end before they begin");
    return m_beginning || blocksFit(m_parts) || fail("is damaged: its checksums do not fit together");
}

bool tSheetReader::isOfThisVersion()
{
    if (m_parts.schema == cSheetSchema)
        return true;
    return fail(m_parts.schema.starts_with(cSheetSchemas)
                    ? fmt::format("{} ({})", cLaterVersion, shown(m_parts.schema.substr(0, cLongestKey)))
                    : "is no sheet of a recording");
}

bool tSheetReader::boolean(bool flag)
{
    if (m_spoke.isOpen())
        return takeSpoke(flag ? "true" : "false");
    return take({.kind = tSheetValue::eFlag, .flag = flag});
}

// The parser calls it for negative numbers alone.
bool tSheetReader::number_integer(number_integer_t number)
{
    if (m_spoke.isOpen())
        return takeSpoke(std::to_string(number));
    return take({.kind = tSheetValue::eNegative, .number = std::uint64_t(0) - static_cast<std::uint64_t>(number)});
}

bool tSheetReader::number_unsigned(number_unsigned_t number)
{
    if (m_spoke.isOpen())
        return takeSpoke(std::to_string(number));
    return take({.kind = tSheetValue::eWhole, .number = number});
}

bool tSheetReader::number_float(number_float_t number, const string_t& text)
{
    if (m_spoke.isOpen())
        return takeSpoke(text);
    return take({.kind = tSheetValue::eReal, .real = number});
}

bool tSheetReader::string(string_t& text)
{
    if (m_spoke.isOpen())
        return takeSpoke(asJson(text));
    if (m_path == cSpokePath)
        m_parts.sheet.spokeLayout = asJson(text);
    // A later version may mean other things by the same keys.
    return take({.kind = tSheetValue::eText, .text = &text}) && (m_path != "schema" || isOfThisVersion());
}

bool tSheetReader::start_object(std::size_t)
{
    if (m_spoke.isOpen() || m_path == cSpokePath)
        return openSpoke('{');
    return take({.kind = tSheetValue::eBegins}) && enter();
}

bool tSheetReader::key(string_t& name)
{
    if (m_spoke.isOpen())
    {
        m_spoke.key(asJson(name));
        return true;
    }
    if (m_beginning && endsBeginning(name))
        return false;  // no problem: all that is wanted has been read
    m_parts.key = name.size() <= cLongestKey ? name : "?";
    m_path.resize(m_lengths.back());
    if (!m_path.empty())
        m_path += '.';
    m_path += m_parts.key;
    findField();
    return true;
}

bool tSheetReader::end_object()
{
    if (m_spoke.isOpen())
        return closeSpoke('}');
    leave();
    return m_path != "streams[]" || endSheetStream(m_parts) || fail("is damaged: it has a stream that cannot be");
}

bool tSheetReader::start_array(std::size_t)
{
    if (m_spoke.isOpen() || m_path == cSpokePath)
        return openSpoke('[');
    if (!enter())
        return false;
    m_path += "[]";
    findField();
    return true;
}

bool tSheetReader::end_array()
{
    if (m_spoke.isOpen())
        return closeSpoke(']');
    leave();
    return true;
}

bool tSheetReader::parse_error(std::size_t position, const std::string&, const nlohmann::detail::exception&)
{
    m_errorAt = position;
    return fail(fmt::format("is damaged: it is no JSON from byte {} on", position));
}

bool tSheetReader::takeSpoke(std::string_view text)
{
    m_spoke.value(text);
    return m_spoke.size() <= cLongestSpoke || fail("is damaged: the layout of its spokes is too long");
}

bool tSheetReader::openSpoke(char bracket)
{
    if (m_spoke.depth() >= cMostLevels)
        return fail("is damaged: it is nested too deeply");
    m_spoke.open(bracket);
    return true;
}

bool tSheetReader::closeSpoke(char bracket)
{
    if (m_spoke.close(bracket))
        m_parts.sheet.spokeLayout = m_spoke.take();
    return true;
}

bool tSheetReader::take(const tSheetValue& value)
{
    if (m_field == nullptr)
        return true;
    const bool whole = value.kind == tSheetValue::eWhole || value.kind == tSheetValue::eNegative;
    const bool possible = !whole || !m_path.ends_with("_ms") || value.number < storage::cTimeLimit;
    return (possible && m_field(m_parts, value)) || fail("is damaged: it has an impossible value for " + shown(m_path));
}

bool tSheetReader::enter()
{
    if (m_lengths.size() >= cMostLevels)
        return fail("is damaged: it is nested too deeply");
    m_lengths.push_back(m_path.size());
    return true;
}

void tSheetReader::leave()
{
    m_path.resize(m_lengths.back());
    m_lengths.pop_back();
    findField();
}

void tSheetReader::findField()
{
    m_field = sheetField(m_path);
}

bool tSheetReader::fail(const std::string& problem)
{
    if (m_problem.empty())
        m_problem = problem;
    return false;
}
}  // namespace recordings
