#include "KestovaRecordings/internal/exports/echotopic.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>

#include "KestovaRecordings/internal/exports/sectortopic.h"

namespace recordings
{
void tEchoTopic::add(const tSpoke& spoke, const tDecodedPlace& place)
{
    if (m_points.size() >= cPointStep * cMostPoints)
        write();
    if (!m_isBegun)
        m_firstNs = receivedNs(spoke, place);
    m_isBegun = true;
    m_times = timesOf(place);
    m_reference = spoke.reference;
    const double angle = 2 * std::numbers::pi * spoke.bearingFrom;
    m_x = std::cos(angle);
    m_y = -std::sin(angle);
    const tCells& cells = spoke.cells;
    const auto least =
        static_cast<std::uint32_t>(std::max(1.0, std::ceil(m_threshold * static_cast<double>(cells.fullScale()))));
    const double cellM = spoke.cellM > 0 ? spoke.cellM : 1, firstM = spoke.firstCellM + cellM / 2;
    for (std::size_t i = 0; i < cells.count; ++i)
    {
        const std::uint32_t value = cells.bits == 8 ? cells.bytes[i] : cells.at(i);
        if (value >= least)
            addPoint(firstM + static_cast<double>(i) * cellM, value);
    }
}

void tEchoTopic::addPoint(double distanceM, std::uint32_t value)
{
    char point[cPointStep];
    const float fields[] = {static_cast<float>(distanceM * m_x), static_cast<float>(distanceM * m_y), 0,
                            static_cast<float>(value)};
    for (std::size_t i = 0; i < 4; ++i)
        le::store(point + 4 * i, std::bit_cast<std::uint32_t>(fields[i]));
    m_points.append(point, sizeof point);
}

void tEchoTopic::write()
{
    if (!m_isBegun)
        return;
    constexpr std::uint8_t cFloat32 = 7;
    const auto points = static_cast<std::uint32_t>(m_points.size() / cPointStep);
    m_message.clear();
    m_message.header(m_firstNs, frameOf(m_reference)).number(std::uint32_t{1}).number(points).count(4);
    std::uint32_t offset = 0;
    for (const char* const name : {"x", "y", "z", "intensity"})
    {
        m_message.text(name).number(offset).number(cFloat32).number(std::uint32_t{1});
        offset += 4;
    }
    m_message.number(std::uint8_t{0}).number(static_cast<std::uint32_t>(cPointStep));  // little-endian
    m_message.number(static_cast<std::uint32_t>(m_points.size()));
    m_message.bytes(m_points).number(std::uint8_t{1});  // none of them is invalid
    m_topic.write(m_times, m_message.bytes());
    m_points.clear();
    m_isBegun = false;
}
}  // namespace recordings
