#include "sessions/report/decodedlines.h"

#include <algorithm>
#include <fmt/format.h>
#include <limits>
#include <utility>

#include "sessions/report/payloadtext.h"

namespace session
{
using namespace recordings;

namespace
{
constexpr std::size_t cMostLines = 4096;
constexpr std::size_t cMostStreams = 256;  // that are decoded
constexpr std::uint64_t cNone = std::numeric_limits<std::uint64_t>::max();

const char* nameOf(utils::tBearingReference reference)
{
    constexpr const char* cNames[] = {"unknown", "bow", "north"};
    return cNames[reference];
}

std::size_t digitsOf(unsigned bits)
{
    if (bits > 16)
        return 8;
    return bits > 8 ? 4 : 2;
}

std::string cellsText(const tCells& cells)
{
    std::string text;
    const std::size_t digits = digitsOf(cells.bits);
    text.reserve(cells.count * digits);
    for (std::size_t i = 0; i < cells.count; ++i)
        for (std::size_t digit = digits; digit-- > 0;)
            text += "0123456789abcdef"[cells.at(i) >> 4 * digit & 15];
    return text;
}

tJson spokeJson(const tSpoke& spoke)
{
    tJson row = {
        {"bearing_from", spoke.bearingFrom}, {"bearing_to", spoke.bearingTo}, {"reference", nameOf(spoke.reference)}};
    if (spoke.cellM > 0)
    {
        row["first_cell_m"] = spoke.firstCellM;
        row["cell_m"] = spoke.cellM;
    }
    row["bits"] = spoke.cells.bits;
    row["cells"] = cellsText(spoke.cells);
    if (spoke.sequence)
        row["sequence"] = *spoke.sequence;
    if (spoke.timeMs)
        row["time_ms"] = *spoke.timeMs;
    return row;
}

template <typename tValue>
void put(tJson& row, const char* key, const std::optional<tValue>& value)
{
    if (value)
        row[key] = *value;
}

tJson sentenceJson(const tSentence& sentence)
{
    tJson row = {{"talker", sentence.talker}, {"type", sentence.type}, {"valid", sentence.valid}};
    put(row, "latitude_deg", sentence.latitudeDeg);
    put(row, "longitude_deg", sentence.longitudeDeg);
    put(row, "speed_kn", sentence.speedKn);
    put(row, "course_deg", sentence.courseDeg);
    put(row, "heading_deg", sentence.headingDeg);
    put(row, "depth_m", sentence.depthM);
    put(row, "utc_ms", sentence.utcMs);
    put(row, "target", sentence.target);
    if (sentence.targetStatus != 0)
        row["target_status"] = std::string(1, sentence.targetStatus);
    put(row, "distance_nm", sentence.distanceNm);
    put(row, "bearing_deg", sentence.bearingDeg);
    if (sentence.bearingDeg)
        row["bearing_reference"] = nameOf(sentence.bearingReference);
    put(row, "mmsi", sentence.mmsi);
    put(row, "ais_type", sentence.aisType);
    put(row, "ship_name", sentence.shipName);
    return row;
}

std::string valueText(const tJson& value)
{
    return value.is_string() ? escapedText(value.get_ref<const std::string&>()) : value.dump();
}

// Returns how many cells there are, and the first of them.
std::string cellsSummary(const tJson& spoke, std::size_t cellsShown)
{
    const auto& cells = spoke["cells"].get_ref<const std::string&>();
    const std::size_t digits = digitsOf(spoke["bits"].get<unsigned>()), count = cells.size() / digits;
    return fmt::format("{} {}{}", count, cells.substr(0, std::min(count, cellsShown) * digits),
                       count > cellsShown ? "..." : "");
}

// Returns "    spoke: bearing_from 0.25, reference bow, ...".
std::string rowText(const char* what, const tJson& row, std::size_t cellsShown)
{
    std::string text = fmt::format("    {}:", what);
    for (const auto& [key, value] : row.items())
    {
        const std::string shown = key == "cells" ? cellsSummary(row, cellsShown) : valueText(value);
        text += fmt::format("{}{} {}", text.back() == ':' ? " " : ", ", key, shown);
    }
    return text + '\n';
}
}  // namespace

tJson decodedJson(tDecodedLine&& line)
{
    tJson json = std::move(line.json);
    json["spokes"] = std::move(line.spokes);
    json["sentences"] = std::move(line.sentences);
    if (line.summary)
        json["summary"] = escapedText(*line.summary);
    if (line.compressed)
        json["compressed"] = true;
    return json;
}

std::string decodedText(const tDecodedLine& line, std::size_t cellsShown)
{
    std::string text = line.text;
    for (const tJson& spoke : line.spokes)
        text += rowText("spoke", spoke, cellsShown);
    for (const tJson& sentence : line.sentences)
        text += rowText("sentence", sentence, cellsShown);
    if (line.summary)
        text += fmt::format("    summary: {}\n", escapedText(*line.summary));
    if (line.compressed)
        text += "    compressed spoke\n";
    return text;
}

tDecodedLines::tDecodedLines(std::vector<utils::tSpokeLayout> layouts, tPrint print)
    : m_layouts(std::move(layouts)), m_print(std::move(print))
{}

// Sensors and targets send sentences, images are spokes; anything may be in messages of groups without a kind.
void tDecodedLines::add(const tStreamKey& stream, std::string_view message, std::uint64_t timeMs, tLine line)
{
    const bool isImage = stream.package && (stream.kind == eImageStream || stream.kind == eOriginalImage);
    const bool isUnknown = !stream.package || stream.kind == eOtherType;
    m_lines.push_back(std::move(line));
    m_shownWaiting += m_lines.back() ? 1 : 0;
    m_isSpoke = false;
    if (m_streams.size() >= cMostStreams && !m_streams.contains(stream))
        return release();
    tStream& readers = m_streams.try_emplace(stream, m_layouts).first->second;
    if (isImage || isUnknown)
        readers.spokes.read(message, {timeMs, m_first + m_lines.size() - 1}, *this);
    if (!isImage && !m_isSpoke)
        readers.sentences.read(message, timeMs, *this);
    release();
}

void tDecodedLines::finish()
{
    for (auto& [key, stream] : m_streams)
        stream.spokes.finish(*this);
    release();
}

void tDecodedLines::onSpoke(const tSpoke& spoke, const tMessagePlace& place)
{
    m_isSpoke = true;
    if (tLine& line = m_lines[place.number - m_first])
        line->spokes.push_back(spokeJson(spoke));
}

void tDecodedLines::onSummary(std::string_view text)
{
    m_isSpoke = true;
    if (tDecodedLine* const line = present())
        line->summary = (line->summary ? *line->summary + '\n' : "") + std::string(text);
}

void tDecodedLines::onCompressed()
{
    if (tDecodedLine* const line = present())
        line->compressed = true;
}

void tDecodedLines::onSentence(const tSentence& sentence)
{
    if (tDecodedLine* const line = present())
        line->sentences.push_back(sentenceJson(sentence));
}

// Returns the number of the first line that a spoke may end with.
std::uint64_t tDecodedLines::oldestAwaited(tStream*& stream)
{
    std::uint64_t oldest = cNone;
    for (auto& [key, each] : m_streams)
        if (const tMessagePlace* const place = each.spokes.waiting(); place != nullptr && place->number < oldest)
        {
            oldest = place->number;
            stream = &each;
        }
    return oldest;
}

void tDecodedLines::release()
{
    tStream* waiting = nullptr;
    std::uint64_t end = oldestAwaited(waiting);
    if (m_lines.size() > cMostLines && waiting != nullptr)
    {
        waiting->spokes.finish(*this);
        end = oldestAwaited(waiting);
    }
    for (; !m_lines.empty() && m_first < end; ++m_first)
    {
        if (m_lines.front())
        {
            --m_shownWaiting;
            m_print(std::move(*m_lines.front()));
        }
        m_lines.pop_front();
    }
}
}  // namespace session
