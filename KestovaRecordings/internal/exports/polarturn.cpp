#include "KestovaRecordings/internal/exports/polarturn.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "KestovaRecordings/internal/png.h"
#include "common/byteorder.h"

namespace recordings
{
namespace
{
constexpr std::size_t cBearingAt = 8, cValidAt = 10, cCellsAt = 11;
constexpr double cStepsPerTurn = 5600;
constexpr std::uint32_t cMostMissing = 4096;
}  // namespace

void tPolarTurn::add(const tSpoke& spoke, std::uint64_t timeUs, std::uint32_t missing)
{
    if (!m_rows.empty())
        addMissing(spoke, timeUs, std::min(missing, cMostMissing));
    m_cover.add(spoke.bearingFrom, missing);
    const std::size_t at = m_cells.size();
    m_cells.resize(at + spoke.cells.count);
    spoke.cells.toBytes(m_cells.data() + at);
    m_rows.push_back({timeUs, spoke.bearingFrom, true, at, spoke.cells.count});
    m_longest = std::max<std::size_t>(m_longest, spoke.cells.count);
}

// Evenly between the last spoke and the next one.
void tPolarTurn::addMissing(const tSpoke& spoke, std::uint64_t timeUs, std::uint32_t missing)
{
    const tRow last = m_rows.back();
    const double turned = std::remainder(spoke.bearingFrom - last.bearing, 1.0);
    const auto passed = static_cast<double>(timeUs - std::min(timeUs, last.timeUs));
    for (std::uint32_t i = 1; i <= missing; ++i)
    {
        const double share = static_cast<double>(i) / (missing + 1), bearing = last.bearing + share * turned;
        m_rows.push_back({last.timeUs + static_cast<std::uint64_t>(share * passed), bearing - std::floor(bearing),
                          false, m_cells.size(), 0});
    }
}

void tPolarTurn::clear()
{
    m_rows.clear();
    m_cells.clear();
    m_longest = 0;
    m_cover.clear();
}

std::string tPolarTurn::png() const
{
    const std::size_t width = cCellsAt + m_longest;
    std::vector<unsigned char> pixels(width * m_rows.size());
    for (std::size_t i = 0; i < m_rows.size(); ++i)
    {
        const tRow& row = m_rows[i];
        unsigned char* const to = &pixels[i * width];
        le::store(to, row.timeUs);
        const long steps = std::lround(row.bearing * cStepsPerTurn) % static_cast<long>(cStepsPerTurn);
        le::store(to + cBearingAt, static_cast<std::uint16_t>(steps));
        to[cValidAt] = row.isValid ? 255 : 0;
        if (row.cells != 0)
            std::memcpy(to + cCellsAt, &m_cells[row.at], row.cells);
    }
    return greyPng(pixels.data(), width, m_rows.size());
}
}  // namespace recordings
