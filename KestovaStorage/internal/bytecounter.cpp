#include "KestovaStorage/internal/bytecounter.h"

#include <algorithm>
#include <cstring>

namespace huffman
{
void tByteCounter::add(const void* bytes, std::size_t len)
{
    const auto* from = static_cast<const unsigned char*>(bytes);
    while (len != 0)
    {
        if (m_inLanes == cMostInLanes)
            sumUp();
        const auto piece = static_cast<std::size_t>(std::min<std::uint64_t>(len, cMostInLanes - m_inLanes));
        addToLanes(from, piece);
        m_inLanes += piece;
        from += piece;
        len -= piece;
    }
}

void tByteCounter::add(const tByteCounts& counts)
{
    for (std::size_t value = 0; value < cByteValues; ++value)
        m_counts[value] += counts[value];
}

void tByteCounter::addToLanes(const unsigned char* bytes, std::size_t len)
{
    std::size_t i = 0;
    for (; len - i >= 8; i += 8)
    {
        for (std::size_t lane = 0; lane < 8; ++lane)
            ++m_lanes[lane][bytes[i + lane]];
    }
    for (; i < len; ++i)
        ++m_lanes[i % cLanes][bytes[i]];
}

void tByteCounter::sumUp()
{
    for (std::size_t value = 0; value < cByteValues; ++value)
    {
        std::uint32_t sum = 0;  // cannot overflow: see cMostInLanes
        for (const auto& lane : m_lanes)
            sum += lane[value];
        m_counts[value] += sum;
    }
    std::memset(m_lanes, 0, sizeof m_lanes);
    m_inLanes = 0;
}

void tByteCounter::clear()
{
    if (m_inLanes != 0)
        std::memset(m_lanes, 0, sizeof m_lanes);
    m_inLanes = 0;
    m_counts.fill(0);
}

const tByteCounts& tByteCounter::counts()
{
    if (m_inLanes != 0)
        sumUp();
    return m_counts;
}
}  // namespace huffman
