#include "bindings/c/sweep.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <new>
#include <utility>

namespace
{
constexpr std::size_t cAlignment = 64;
constexpr std::size_t cFirstRows = 1024;
constexpr bool cIsBigEndian = std::endian::native == std::endian::big;

template <typename tCell>
void widen(const recordings::tCells& cells, unsigned char* to)
{
    for (std::size_t i = 0; i < cells.count; ++i)
    {
        const auto cell = static_cast<tCell>(cells.at(i));
        std::memcpy(to + i * sizeof cell, &cell, sizeof cell);
    }
}

// Returns whether the cells lie in memory as an array has them.
bool isArray(const recordings::tCells& cells, std::uint32_t cellBytes)
{
    const bool isNative = cells.bigEndian == cIsBigEndian;
    return cells.bits == 8 * cellBytes && (cellBytes == 1 || isNative);
}

unsigned char greyOfCell(std::uint32_t value, std::uint32_t bits)
{
    const std::uint32_t full = (1u << std::min(bits, 8u)) - 1;
    return static_cast<unsigned char>(bits > 8 ? value >> (bits - 8) : value * (255u / full));
}
}  // namespace

kestova_sweep::tMemory kestova_sweep::allocate(std::size_t bytes)
{
    const std::size_t size = (std::max<std::size_t>(bytes, 1) + cAlignment - 1) / cAlignment * cAlignment;
    tMemory memory(static_cast<unsigned char*>(std::aligned_alloc(cAlignment, size)));
    if (!memory)
        throw std::bad_alloc();
    return memory;
}

// Moves what is there to new rows; their tails are zeros.
void kestova_sweep::layOut(std::size_t rows, std::uint32_t cells, std::uint32_t cellBytes)
{
    const tMemory was = std::exchange(m_data, allocate(rows * cells * cellBytes));
    const std::size_t wasWide = std::size_t{m_cells} * m_cellBytes, used = std::size_t{m_cells} * cellBytes;
    const auto wasBits = static_cast<std::uint8_t>(8 * m_cellBytes);
    const std::uint32_t wasCells = std::exchange(m_cells, cells);
    m_cellBytes = cellBytes;
    m_capacity = rows;
    for (std::size_t i = 0; i < spokes(); ++i)
    {
        put({was.get() + i * wasWide, wasCells, wasBits, cIsBigEndian}, row(i));
        std::memset(row(i) + used, 0, std::size_t{cells} * cellBytes - used);
    }
}

void kestova_sweep::put(const recordings::tCells& cells, unsigned char* to) const
{
    if (isArray(cells, m_cellBytes))
        std::memcpy(to, cells.bytes, std::size_t{cells.count} * m_cellBytes);
    else if (m_cellBytes == 1)
        widen<std::uint8_t>(cells, to);
    else if (m_cellBytes == 2)
        widen<std::uint16_t>(cells, to);
    else
        widen<std::uint32_t>(cells, to);
}

void kestova_sweep::add(const recordings::tSpoke& spoke, const binding::tSpokePlace& place)
{
    const recordings::tCells& cells = spoke.cells;
    if (m_withCells)
    {
        const std::uint32_t count = std::max(m_cells, cells.count);
        const std::uint32_t narrow = cells.bits > 8 ? 2 : 1;
        const std::uint32_t cellBytes = std::max<std::uint32_t>(m_cellBytes, cells.bits > 16 ? 4 : narrow);
        const std::size_t rows =
            spokes() < m_capacity ? m_capacity : std::max({m_expected, cFirstRows, 2 * m_capacity});
        if (rows != m_capacity || count != m_cells || cellBytes != m_cellBytes)
            layOut(rows, count, cellBytes);
        unsigned char* const to = row(spokes());
        put(cells, to);
        std::memset(to + std::size_t{cells.count} * m_cellBytes, 0, std::size_t{m_cells - cells.count} * m_cellBytes);
    }
    if (!m_bearing.empty())
        m_swept += std::remainder(spoke.bearingFrom - m_bearing.back(), 1.0);
    m_bits = std::max<std::uint32_t>(m_bits, cells.bits);
    m_bearing.push_back(spoke.bearingFrom);
    m_bearingTo.push_back(spoke.bearingTo);
    m_turned.push_back(place.turned);
    m_times.push_back(static_cast<std::int64_t>(place.timeMs));
    m_firstCell.push_back(static_cast<float>(spoke.firstCellM));
    m_cell.push_back(static_cast<float>(spoke.cellM));
    m_heading.push_back(place.headingDeg);
    m_counts.push_back(cells.count);
    m_sequence.push_back(static_cast<std::uint32_t>(spoke.sequence.value_or(0)));
    if (spoke.cellM > 0)
        m_range = std::max(m_range, spoke.firstCellM + spoke.cellM * cells.count);
    m_reference = static_cast<std::uint8_t>(spoke.reference);
}

double kestova_sweep::covered() const
{
    if (m_bearing.empty())
        return 0;
    const double last = std::abs(std::remainder(m_bearingTo.back() - m_bearing.back(), 1.0));
    return std::min(std::abs(m_swept) + last, 1.0);
}

kestova_sweep_view kestova_sweep::view() const
{
    kestova_sweep_view view{};
    view.spokes = static_cast<std::uint32_t>(spokes());
    view.cells = m_cells;
    view.cell_bytes = m_cellBytes;
    view.bits = m_bits;
    view.data = m_data.get();
    view.bearing = m_bearing.data();
    view.bearing_to = m_bearingTo.data();
    view.time_ms = m_times.data();
    view.first_cell_m = m_firstCell.data();
    view.cell_m = m_cell.data();
    view.heading_deg = m_heading.data();
    view.cell_count = m_counts.data();
    view.sequence = m_sequence.data();
    view.range_m = m_range;
    view.missing = missing;
    view.reference = m_reference;
    view.complete = complete ? 1 : 0;
    return view;
}

void kestova_sweep::greyOf(std::size_t spoke, unsigned char* to) const
{
    const recordings::tCells cells{row(spoke), m_counts[spoke], static_cast<std::uint8_t>(8 * m_cellBytes),
                                   cIsBigEndian};
    if (m_bits == 8)
        return static_cast<void>(std::memcpy(to, cells.bytes, cells.count));
    for (std::size_t i = 0; i < cells.count; ++i)
        to[i] = greyOfCell(cells.at(i), m_bits);
}

std::vector<double> kestova_sweep::headings() const
{
    std::vector<double> turns = m_turned;
    for (std::size_t i = 1; i < turns.size(); ++i)
        turns[i] = std::isnan(turns[i]) ? turns[i - 1] : turns[i];
    for (std::size_t i = turns.size(); i-- > 1;)
        turns[i - 1] = std::isnan(turns[i - 1]) ? turns[i] : turns[i - 1];
    return turns.empty() || std::isnan(turns[0]) ? std::vector<double>() : turns;
}
