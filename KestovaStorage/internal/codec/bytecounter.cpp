#include "KestovaStorage/internal/codec/bytecounter.h"

#include <algorithm>
#include <memory>
#include <new>

#include "KestovaStorage/internal/codec/bytecounter_avx512.h"
#include "common/byteorder.h"

namespace huffman
{
namespace
{
constexpr std::size_t cStep = 2 * tCounterLanes::cCount;
// From here on counting pairs saves more time than their counters cost.
constexpr std::size_t cBytesWorthPairs = 4 << 20;
constexpr std::size_t cPairLane = cByteValues * cByteValues + 16;  // as tCounterLanes::cSize

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
    std::size_t i = m_vectors                 ? countVectors(bytes, len, m_counts, m_lanes)
                    : len >= cBytesWorthPairs ? addPairs(bytes, len)
                                              : 0;
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

// Counting waits for its stores: pairs of bytes need half as many. Two counters of each pair, for the reason of the
// lanes. Returns the number of bytes counted: none without memory.
std::size_t tByteCounter::addPairs(const unsigned char* bytes, std::size_t len)
{
    const std::unique_ptr<std::uint32_t[]> lanes(new (std::nothrow) std::uint32_t[2 * cPairLane]());
    if (!lanes)
        return 0;
    std::uint64_t zeros = 0;
    std::size_t i = 0;
    for (; len - i >= cStep; i += cStep)
    {
        if (areZeros(bytes + i))
        {
            zeros += cStep;
            continue;
        }
        for (std::size_t at = 0; at < cStep; at += 2)
            ++lanes[at / 2 % 2 * cPairLane + le::load<std::uint16_t>(bytes + i + at)];
    }
    for (std::size_t second = 0; second < cByteValues; ++second)
    {
        std::uint64_t sum = 0;
        for (std::size_t first = 0; first < cByteValues; ++first)
        {
            const std::size_t pair = second * cByteValues + first;
            const std::uint32_t count = lanes[pair] + lanes[cPairLane + pair];  // cannot overflow: see cMostInLanes
            m_counts[first] += count;
            sum += count;
        }
        m_counts[second] += sum;
    }
    m_counts[0] += zeros;
    return i;
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
