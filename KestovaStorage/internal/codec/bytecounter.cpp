#include "KestovaStorage/internal/codec/bytecounter.h"

#include <algorithm>

#include "KestovaStorage/internal/codec/bytecounter_avx512.h"
#include "common/byteorder.h"

namespace huffman
{
namespace
{
// Of 16 bytes.
bool areZeros(const unsigned char* bytes)
{
    return (le::load<std::uint64_t>(bytes) | le::load<std::uint64_t>(bytes + 8)) == 0;
}
}  // namespace

tByteCounter::tByteCounter(eInstructions instructions)
    : m_vectors(instructions == eInstructions::eBest && hasVectorCounter())
{}

void tByteCounter::add(const void* bytes, std::size_t len)
{
    const auto* from = static_cast<const unsigned char*>(bytes);
    while (len != 0)
    {
        if (m_inLanes == cMostInLanes)
            sumUp();
        const auto piece = static_cast<std::size_t>(std::min<std::uint64_t>(len, cMostInLanes - m_inLanes));
        addPiece(from, piece);
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

void tByteCounter::addPiece(const unsigned char* bytes, std::size_t len)
{
    constexpr std::size_t cStep = 2 * tCounterLanes::cCount;
    std::size_t i = m_vectors ? countVectors(bytes, len, m_counts, m_lanes) : 0;
    std::uint64_t zeros = 0;
    for (; len - i >= cStep; i += cStep)
    {
        if (areZeros(bytes + i))
        {
            zeros += cStep;
            continue;
        }
        for (std::size_t at = 0; at < cStep; ++at)
            ++m_lanes.of[at % tCounterLanes::cCount][bytes[i + at]];
    }
    m_counts[0] += zeros;
    for (; i < len; ++i)
        ++m_lanes.of[i % tCounterLanes::cCount][bytes[i]];
}

void tByteCounter::sumUp()
{
    for (std::size_t value = 0; value < cByteValues; ++value)
    {
        std::uint32_t sum = 0;  // cannot overflow: see cMostInLanes
        for (const auto& lane : m_lanes.of)
            sum += lane[value];
        m_counts[value] += sum;
    }
    m_lanes = {};
    m_inLanes = 0;
}

void tByteCounter::clear()
{
    if (m_inLanes != 0)
        m_lanes = {};
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
