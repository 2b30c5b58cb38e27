#include "KestovaRecordings/internal/exports/sectortopic.h"

#include <bit>
#include <cmath>
#include <numbers>

namespace recordings
{
namespace
{
constexpr double cTurn = 2 * std::numbers::pi;
constexpr std::uint64_t cMs = 1'000'000;
constexpr std::int64_t cLongestTurnNs = 600'000'000'000;

void putFloat(char* to, std::size_t i, float value)
{
    le::store(to + 4 * i, std::bit_cast<std::uint32_t>(value));
}

// As float32 behind their number; the values as they came.
void appendCells(const tCells& cells, std::string& to)
{
    const std::size_t at = to.size();
    to.resize(at + 4 + 4 * std::size_t{cells.count});
    le::store(&to[at], cells.count);
    char* const floats = &to[at] + 4;
    if (cells.bits == 8)
        for (std::size_t i = 0; i < cells.count; ++i)
            putFloat(floats, i, cells.bytes[i]);
    else
        for (std::size_t i = 0; i < cells.count; ++i)
            putFloat(floats, i, static_cast<float>(cells.at(i)));
}
}  // namespace

const char* frameOf(utils::tBearingReference reference)
{
    return reference == utils::eReferenceNorth ? "radar_north" : "radar";
}

std::uint64_t receivedNs(const tSpoke& spoke, const tDecodedPlace& place)
{
    return spoke.timeMs ? *spoke.timeMs * cMs : place.timeUs * 1000;
}

void tSectorTopic::add(const tSpoke& spoke, const tDecodedPlace& place)
{
    const tForm form{spoke.firstCellM, spoke.cellM, spoke.cells.count, spoke.reference};
    const std::uint64_t ns = receivedNs(spoke, place);
    const bool isMissing = m_steps.next(spoke) != 0;
    const bool isOverZero = m_spokes != 0 && std::abs(spoke.bearingFrom - m_lastBearing) > 0.5;
    if (isMissing || isOverZero || m_spokes == cMostSpokes || !(form == m_form))
        write();
    if (isOverZero)
        measureTurn(ns);
    if (m_spokes++ == 0)
    {
        m_form = form;
        m_firstBearing = spoke.bearingFrom;
        m_width = std::remainder(spoke.bearingTo - spoke.bearingFrom, 1.0);
        m_firstNs = ns;
    }
    m_lastBearing = spoke.bearingFrom;
    m_lastNs = ns;
    m_times = timesOf(place);
    appendCells(spoke.cells, m_echoes);
}

void tSectorTopic::measureTurn(std::uint64_t ns)
{
    const std::int64_t lasted = m_zeroNs ? static_cast<std::int64_t>(ns - *m_zeroNs) : 0;
    m_turnNs = lasted > 0 && lasted < cLongestTurnNs ? lasted : m_turnNs;
    m_zeroNs = ns;
}

void tSectorTopic::write()
{
    if (m_spokes == 0)
        return;
    const std::int64_t between = m_spokes - 1;
    const double step =
        between == 0 ? m_width : std::remainder(m_lastBearing - m_firstBearing, 1.0) / static_cast<double>(between);
    const std::int64_t lasted = static_cast<std::int64_t>(m_lastNs - m_firstNs);
    const std::int64_t incrementNs = between == 0 || lasted < 0 ? 0 : lasted / between;
    const std::int64_t turnNs =
        m_turnNs != 0 || step == 0 ? m_turnNs : std::llround(static_cast<double>(incrementNs) / std::abs(step));
    const double last = m_form.count == 0 ? 0 : m_form.count - 0.5;
    m_message.clear();
    m_message.header(m_firstNs, frameOf(m_form.reference));
    m_message.number(static_cast<float>(-cTurn * m_firstBearing)).number(static_cast<float>(-cTurn * step));
    m_message.time(incrementNs).time(turnNs);
    m_message.number(static_cast<float>(m_form.firstCellM + 0.5 * m_form.cellM));
    m_message.number(static_cast<float>(m_form.firstCellM + last * m_form.cellM));
    m_message.count(m_spokes);
    m_topic.write(m_times, m_message.bytes(), m_echoes);
    m_echoes.clear();
    m_spokes = 0;
}
}  // namespace recordings
