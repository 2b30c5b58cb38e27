#include "server/livebatch.h"

#include <cmath>
#include <cstring>
#include <limits>

#include "common/byteorder.h"

namespace server
{
using recordings::tCells;
using recordings::tSpoke;

namespace
{
constexpr std::size_t cHeadSize = 24, cSpokeHeadSize = 40;
constexpr std::size_t cMostSpokes = 512, cMostBytes = 512 * 1024;

template <typename tValue>
void put(std::string& bytes, std::size_t at, tValue value)
{
    le::store(bytes.data() + at, value);
}

void putFloat(std::string& bytes, std::size_t at, double value)
{
    const auto number = static_cast<float>(value);
    std::uint32_t bits = 0;
    std::memcpy(&bits, &number, sizeof(bits));
    put(bytes, at, bits);
}

std::uint32_t bearing(double turns)
{
    const double part = turns - std::floor(turns);
    return static_cast<std::uint32_t>(static_cast<std::uint64_t>(std::llround(part * 4294967296.0)));
}

std::uint8_t cellSize(unsigned bits)
{
    return bits <= 8 ? 1 : bits <= 16 ? 2 : 4;
}

void putCells(std::string& bytes, std::size_t at, const tCells& cells)
{
    if (cells.bits == 8)
    {
        std::memcpy(bytes.data() + at, cells.bytes, cells.count);
        return;
    }
    const std::uint8_t size = cellSize(cells.bits);
    for (std::size_t i = 0; i < cells.count; ++i, at += size)
    {
        const std::uint32_t value = cells.at(i);
        for (std::uint8_t byte = 0; byte < size; ++byte)
            bytes[at + byte] = static_cast<char>(value >> 8 * byte);
    }
}
}  // namespace

double tSweep::add(double bearingFrom)
{
    double step = m_last ? bearingFrom - *m_last : 0;
    m_last = bearingFrom;
    step -= std::floor(step);
    return std::min(step, 1 - step);
}

bool tBatchBuilder::isFull() const
{
    return m_spokes >= cMostSpokes || m_bytes.size() >= cMostBytes;
}

void tBatchBuilder::add(const tSpoke& spoke, std::uint64_t timeMs, std::optional<double> headingDeg, double turned)
{
    if (m_bytes.empty())
        m_bytes.resize(cHeadSize);
    const std::size_t at = m_bytes.size();
    const std::size_t size = cSpokeHeadSize + std::size_t{spoke.cells.count} * cellSize(spoke.cells.bits);
    m_bytes.resize(at + (size + 7) / 8 * 8);
    put(m_bytes, at, timeMs);
    put(m_bytes, at + 8, bearing(spoke.bearingFrom));
    put(m_bytes, at + 12, bearing(spoke.bearingTo));
    putFloat(m_bytes, at + 16, spoke.firstCellM);
    putFloat(m_bytes, at + 20, spoke.cellM);
    put(m_bytes, at + 24, static_cast<std::uint32_t>(spoke.sequence.value_or(0)));
    put(m_bytes, at + 28, spoke.cells.count);
    putFloat(m_bytes, at + 32, headingDeg.value_or(std::numeric_limits<double>::quiet_NaN()));
    m_bytes[at + 36] = static_cast<char>(spoke.cells.bits);
    m_bytes[at + 37] = static_cast<char>(cellSize(spoke.cells.bits));
    m_bytes[at + 38] = static_cast<char>(spoke.reference);
    putCells(m_bytes, at + cSpokeHeadSize, spoke.cells);
    ++m_spokes;
    m_turns += turned;
}

tBatch tBatchBuilder::take(const tBatchHead& head)
{
    if (m_bytes.empty())
        m_bytes.resize(cHeadSize);
    m_bytes[0] = 1;
    m_bytes[1] = 1;
    put(m_bytes, 2, static_cast<std::uint16_t>(m_spokes));
    put(m_bytes, 4, head.source);
    put(m_bytes, 8, head.epoch);
    put(m_bytes, 12, head.flags);
    put(m_bytes, 16, head.number);
    const std::size_t size = m_bytes.size();
    tBatch batch{std::make_shared<const std::string>(std::move(m_bytes)), m_spokes, m_turns};
    m_bytes = {};
    m_bytes.reserve(size);
    m_spokes = 0;
    m_turns = 0;
    return batch;
}
}  // namespace server
