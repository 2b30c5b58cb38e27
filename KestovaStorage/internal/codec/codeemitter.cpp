#include "KestovaStorage/internal/codec/codeemitter.h"

#include <stdexcept>

#include "KestovaStorage/internal/codec/bitappender.h"
#include "common/byteorder.h"

namespace huffman
{
namespace
{
constexpr std::size_t cShortLength = 128;  // below it reading back the last unit does not pay
constexpr std::size_t cVectorLength = 24;  // below it vectors do not pay
constexpr std::size_t cPairValues = 1 << 16;

// Looks single bytes up. The sum of eight lengths needs more than a byte; the codes leave room for it.
struct tSingles
{
    static constexpr std::uint64_t cLengths = 0xffff;
    const std::uint64_t* singles;

    // The codes of four bytes, the last one's on top; low bits: their length.
    KESTOVA_INLINE void look(std::uint64_t bytes, std::uint64_t& codes, std::uint64_t& length) const
    {
        const std::uint64_t a = singles[bytes & 0xff], b = singles[bytes >> 8 & 0xff];
        const std::uint64_t c = singles[bytes >> 16 & 0xff], d = singles[bytes >> 24 & 0xff];
        codes = (((a >> (b & 63)) | b) >> ((c + d) & 63)) | (c >> (d & 63)) | d;
        length = a + b + c + d;
    }
    KESTOVA_INLINE void lookTwo(std::uint64_t bytes, std::uint64_t& codes, std::uint64_t& length) const
    {
        const std::uint64_t a = singles[bytes & 0xff], b = singles[bytes >> 8 & 0xff];
        codes = (a >> (b & 63)) | b;
        length = a + b;
    }
};

struct tPairs
{
    static constexpr std::uint64_t cLengths = 0xff;
    const std::uint64_t* pairs;

    KESTOVA_INLINE void look(std::uint64_t bytes, std::uint64_t& codes, std::uint64_t& length) const
    {
        const std::uint64_t a = pairs[bytes & 0xffff], b = pairs[bytes >> 16 & 0xffff];
        codes = (a >> (b & 63)) | b;
        length = a + b;
    }
    KESTOVA_INLINE void lookTwo(std::uint64_t bytes, std::uint64_t& codes, std::uint64_t& length) const
    {
        codes = length = pairs[bytes & 0xffff];
    }
};

// Joins the last bytes, fewer than 8: much of a short record.
template <typename tEnd>
KESTOVA_INLINE std::size_t joinRest(const std::uint64_t* singles, const unsigned char* data, std::size_t i,
                                    std::size_t len, tEnd& end)
{
    if (len - i >= 4)
    {
        std::uint64_t codes, length;
        tSingles{singles}.look(le::load<std::uint32_t>(data + i), codes, length);
        length &= tSingles::cLengths;
        if (length <= cMostBitsJoined)
        {
            end.join(codes >> (64 - length), static_cast<unsigned>(length));
            i += 4;
        }
    }
    return joinSingles(singles, data, i, len, end);
}

// Joins a group of six or eight bytes that do not fit together: four and the rest, if these fit. Returns the place at
// which it stopped, before the end of the group if a byte has no code.
template <typename tEntries, typename tEnd>
KESTOVA_INLINE std::size_t joinParts(std::uint64_t codes, std::uint64_t length, std::uint64_t nextCodes,
                                     std::uint64_t nextLength, const std::uint64_t* singles, const unsigned char* data,
                                     std::size_t i, std::size_t groupEnd, tEnd& end)
{
    length &= tEntries::cLengths;
    nextLength &= tEntries::cLengths;
    if (length > cMostBitsJoined || nextLength > cMostBitsJoined)
        return joinSingles(singles, data, i, groupEnd, end);
    end.join(codes >> (64 - length), static_cast<unsigned>(length));
    end.join(nextCodes >> (64 - nextLength), static_cast<unsigned>(nextLength));
    return groupEnd;
}

// Emits groups of `cGroup` bytes (6 or 8) while 8 bytes are left, then single ones. Returns the number of bytes
// emitted: fewer than `len` if one has no code.
template <std::size_t cGroup, typename tEntries, typename tEnd>
KESTOVA_INLINE std::size_t emitGroups(const tEntries entries, const std::uint64_t* singles, const unsigned char* data,
                                      std::size_t len, tEnd& end)
{
    std::size_t i = 0;
    tEnd stream = end;  // a copy of its own stays in registers
    while (len - i >= 8)
    {
        const auto bytes = le::load<std::uint64_t>(data + i);
        std::uint64_t codes, length, nextCodes, nextLength;
        entries.look(bytes, codes, length);
        if constexpr (cGroup == 8)
            entries.look(bytes >> 32, nextCodes, nextLength);
        else
            entries.lookTwo(bytes >> 32, nextCodes, nextLength);
        const std::uint64_t all = (codes >> (nextLength & 63)) | nextCodes;
        const std::uint64_t allLength = (length + nextLength) & tEntries::cLengths;
        const std::size_t groupEnd = i + cGroup;
        if (allLength <= cMostBitsJoined)
        {
            stream.join(all >> (64 - allLength), static_cast<unsigned>(allLength));
            i = groupEnd;
            continue;
        }
        i = joinParts<tEntries>(codes, length, nextCodes, nextLength, singles, data, i, groupEnd, stream);
        if (i != groupEnd)
            break;
    }
    if (len - i < 8)
        i = joinRest(singles, data, i, len, stream);
    end = stream;
    return i;
}

template <typename tEntries, typename tEnd>
KESTOVA_INLINE std::size_t emitAll(const tEntries entries, bool longGroups, const std::uint64_t* singles,
                                   const unsigned char* data, std::size_t len, tEnd& end)
{
    return longGroups ? emitGroups<8>(entries, singles, data, len, end)
                      : emitGroups<6>(entries, singles, data, len, end);
}

// By pairs if there is a table of them.
KESTOVA_INLINE std::size_t emitAny(const std::uint64_t* pairs, bool longGroups, const std::uint64_t* singles,
                                   const unsigned char* data, std::size_t len, tByteAppender& end)
{
    return pairs != nullptr ? emitAll(tPairs{pairs}, longGroups, singles, data, len, end)
                            : emitAll(tSingles{singles}, longGroups, singles, data, len, end);
}

std::size_t emitPortable(const std::uint64_t* pairs, bool longGroups, const std::uint64_t* singles,
                         const unsigned char* data, std::size_t len, tByteAppender& end)
{
    return emitAny(pairs, longGroups, singles, data, len, end);
}

KESTOVA_WITH_BMI2 std::size_t emitBmi2(const std::uint64_t* pairs, bool longGroups, const std::uint64_t* singles,
                                       const unsigned char* data, std::size_t len, tByteAppender& end)
{
    return emitAny(pairs, longGroups, singles, data, len, end);
}

// Keeps everything in registers, from the carried bits to those left over: they are much of a short record.
KESTOVA_INLINE tCodeEmitter::tEmitted emitShort(bool longGroups, const std::uint64_t* singles,
                                                const unsigned char* data, std::size_t len, tPartialUnit& carry,
                                                unsigned char* out)
{
    tUnitAppender end{carry.bits, carry.count, out};
    const std::size_t done = emitAll(tSingles{singles}, longGroups, singles, data, len, end);
    carry = {end.bits, end.count};
    return {done, end.out};
}

tCodeEmitter::tEmitted emitShortPortable(bool longGroups, const std::uint64_t* singles, const unsigned char* data,
                                         std::size_t len, tPartialUnit& carry, unsigned char* out)
{
    return emitShort(longGroups, singles, data, len, carry, out);
}

KESTOVA_WITH_BMI2 tCodeEmitter::tEmitted emitShortBmi2(bool longGroups, const std::uint64_t* singles,
                                                       const unsigned char* data, std::size_t len, tPartialUnit& carry,
                                                       unsigned char* out)
{
    return emitShort(longGroups, singles, data, len, carry, out);
}

// Shifts that are defined for every distance: nothing is left of what is shifted by 64 or more.
std::uint64_t shiftedLeft(std::uint64_t value, unsigned distance)
{
    return distance > 63 ? 0 : value << distance;
}

std::uint64_t shiftedRight(std::uint64_t value, unsigned distance)
{
    return distance > 63 ? 0 : value >> distance;
}
}  // namespace

tCodeEmitter::tCodeEmitter(eInstructions instructions)
    : m_instructions(instructions), m_emitShort(usesBmi2(instructions) ? emitShortBmi2 : emitShortPortable)
{}

void tCodeEmitter::set(const tCodeTable& codes, const tByteCounts& counts)
{
    m_codes = codes;
    std::uint64_t bytes = 0, bits = 0;
    for (std::size_t i = 0; i < codes.variety; ++i)
    {
        const std::uint8_t value = codes.values[i];
        bytes += counts[value];
        bits += counts[value] * codes.codes[value].length;
    }
    m_fast = codes.longest <= cLongestFaithfulCode && codes.shortest != 0;
    m_longGroups = bits * 2 < bytes * 9;
    m_longVectors = bits * 2 < bytes * 11;
    m_vectors = m_fast && bytes >= cShortLength && m_instructions == eInstructions::eBest && hasVectorEmitter();
    m_shortLength = m_vectors ? cVectorLength : m_fast ? cShortLength : 0;
    m_pairs.clear();
    if (m_fast)
        setSingles();
    if (m_vectors)
        m_vectorTables.set(m_codes);
    else if (m_fast && bytes >= cBytesWorthPairs)
        setPairs();
}

void tCodeEmitter::setSingles()
{
    m_singles.fill(cNoEntry);
    for (std::size_t i = 0; i < m_codes.variety; ++i)
    {
        const tCode& code = m_codes.codes[m_codes.values[i]];
        m_singles[m_codes.values[i]] = code.bits << (64 - code.length) | code.length;
    }
}

void tCodeEmitter::setPairs()
{
    m_pairs.resize(cPairValues);
    for (std::size_t second = 0; second < cByteValues; ++second)
    {
        const std::uint64_t b = m_singles[second], bLength = b & 63;
        for (std::size_t first = 0; first < cByteValues; ++first)
        {
            const std::uint64_t a = m_singles[first], length = (a & 63) + bLength;
            const std::uint64_t codes = ((a ^ (a & 63)) >> bLength) | (b ^ bLength);
            m_pairs[second << 8 | first] = length > cMostBitsJoined ? cNoEntry : codes | length;
        }
    }
}

void tCodeEmitter::raiseNoCode()
{
    throw std::out_of_range("map::at");
}

// Whole bytes are stored as they fill, 8 bytes at a time; the last unit is read back from there. Short inputs for which
// vectors pay stay in registers.
tCodeEmitter::tEmitted tCodeEmitter::emitLong(const unsigned char* data, std::size_t len, tPartialUnit& carry,
                                              unsigned char* out) const
{
    if (!m_fast)
        return emitExact(data, len, carry, out);
    if (len < cShortLength)
    {
        tUnitAppender end{carry.bits, carry.count, out};
        const std::size_t done = emitVectors(m_vectorTables, m_longVectors, m_singles.data(), data, len, end);
        carry = {end.bits, end.count};
        return {done, end.out};
    }
    le::store(out, carry.bits);
    tByteAppender end{carry.bits >> (carry.count & 56), carry.count & 7, out + carry.count / 8};
    const auto emitWith = usesBmi2(m_instructions) ? emitBmi2 : emitPortable;
    const std::uint64_t* const pairs = m_pairs.empty() ? nullptr : m_pairs.data();
    const std::size_t done = m_vectors ? emitVectors(m_vectorTables, m_longVectors, m_singles.data(), data, len, end)
                                       : emitWith(pairs, m_longGroups, m_singles.data(), data, len, end);
    le::store(end.out, end.bits);
    const auto bytes = static_cast<std::size_t>(end.out - out);
    unsigned char* const unit = out + bytes / 8 * 8;
    carry = {le::load<std::uint64_t>(unit), static_cast<unsigned>(bytes % 8) * 8 + end.count};
    return {done, unit};
}

// Unit by unit, for codes of any length. Kept: codes above 31 bits lose the same bits as in existing files.
tCodeEmitter::tEmitted tCodeEmitter::emitExact(const unsigned char* data, std::size_t len, tPartialUnit& carry,
                                               unsigned char* out) const
{
    for (std::size_t i = 0; i < len; ++i)
    {
        if (!m_codes.present[data[i]])
            return {i, out};
        const tCode& code = m_codes.codes[data[i]];
        const unsigned before = carry.count;
        carry.bits |= shiftedLeft(code.bits, before);
        carry.count = (before + code.length) % 256;
        if (carry.count < 64)
            continue;
        le::store(out, carry.bits);
        out += 8;
        carry.count -= 64;
        carry.bits = shiftedRight(code.bits, 64 - before);
    }
    return {len, out};
}
}  // namespace huffman
