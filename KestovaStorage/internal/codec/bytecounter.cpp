#include "KestovaStorage/internal/codec/bytecounter.h"

#include <algorithm>
#include <iterator>

#include "KestovaStorage/internal/codec/bytecounter_avx512.h"
#include "common/byteorder.h"

namespace huffman
{
namespace
{
constexpr std::size_t cWorthAllLanes = 128;  // bytes in one call

// Counts the bytes of a word in the eight lanes from `first` on.
KESTOVA_INLINE void countWord(tCounterLanes& lanes, std::size_t first, std::uint64_t word)
{
    for (std::size_t lane = first; lane < first + sizeof word; ++lane)
    {
        ++lanes.of[lane][word & 0xff];
        word >>= 8;
    }
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
    constexpr std::size_t cWord = sizeof(std::uint64_t), cStep = 2 * cWord;
    const bool allLanes = len >= cWorthAllLanes;
    m_lanesUsed = std::max(m_lanesUsed, allLanes ? tCounterLanes::cCount : tCounterLanes::cFew);
    std::size_t i = m_vectors && allLanes ? countVectors(bytes, len, m_counts, m_lanes) : 0;
    std::uint64_t zeros = 0;
    for (; len - i >= cStep; i += cStep)
    {
        const auto first = le::load<std::uint64_t>(bytes + i), second = le::load<std::uint64_t>(bytes + i + cWord);
        if ((first | second) == 0)
        {
            zeros += cStep;
            continue;
        }
        countWord(m_lanes, 0, first);
        countWord(m_lanes, allLanes ? cWord : 0, second);
    }
    m_counts[0] += zeros;
    for (; i < len; ++i)
        ++m_lanes.of[i % tCounterLanes::cFew][bytes[i]];
}

void tByteCounter::sumUp()
{
    std::array<std::uint32_t, cByteValues> sums{};  // cannot overflow: see cMostInLanes
    for (std::size_t lane = 0; lane < m_lanesUsed; ++lane)
        for (std::size_t value = 0; value < cByteValues; ++value)
            sums[value] += m_lanes.of[lane][value];
    for (std::size_t value = 0; value < cByteValues; ++value)
        m_counts[value] += sums[value];
    clearLanes();
}

void tByteCounter::clearLanes()
{
    for (std::size_t lane = 0; lane < m_lanesUsed; ++lane)
        std::fill(std::begin(m_lanes.of[lane]), std::end(m_lanes.of[lane]), 0);
    m_lanesUsed = 0;
    m_inLanes = 0;
}

void tByteCounter::clear()
{
    clearLanes();
    m_counts.fill(0);
}

const tByteCounts& tByteCounter::counts()
{
    if (m_inLanes != 0)
        sumUp();
    return m_counts;
}
}  // namespace huffman
