#include "KestovaStorage/internal/codec/symboldecoder.h"

#include <algorithm>
#include <bit>

#include "KestovaStorage/internal/codec/symbollookup.h"
#include "common/byteorder.h"

namespace huffman
{
namespace
{
constexpr unsigned cWidthOfFour = 12;  // up to which a filled word is enough for five lookups

// The next bits of a range.
struct tWord
{
    std::uint64_t bits;
    std::uint64_t count;  // 57 or more, or all that are left
};

// Reads no byte behind the last one that holds bits of the range, and none before the data.
KESTOVA_INLINE tWord wordAt(const tBitRange& range)
{
    const std::uint64_t byte = range.pos / 8, there = range.bytes() - byte;
    if (there >= 8)
        return {le::load<std::uint64_t>(range.data + byte) >> (range.pos % 8),
                std::min(range.left(), 64 - range.pos % 8)};
    const std::uint64_t word = range.bytes() >= 8
                                   ? le::load<std::uint64_t>(range.data + range.bytes() - 8) >> (64 - 8 * there)
                                   : le::loadPart(range.data + byte, there);
    return {word >> (range.pos % 8), range.left()};
}

// Decodes a code longer than the table is wide: walks the tree from the node that its first bits lead to.
bool decodeLong(const tSymbolTable& table, std::uint64_t entry, tBitRange& range, unsigned char*& out)
{
    const tCodeTree& tree = table.tree();
    std::size_t node = tSymbolTable::nodeOf(entry);
    std::uint64_t pos = range.pos + table.width();
    for (; !tree.isLeaf(node); ++pos)
    {
        if (pos >= range.end)
            return false;
        node = (range.data[pos / 8] >> (pos % 8) & 1) != 0 ? tree.left(node) : tree.right(node);
    }
    *out++ = tree.value(node);
    range.pos = pos;
    return true;
}

// Decodes from the last word of a range. Its last lookup reaches beyond the end: only those of its symbols count whose
// codes end with the range or before.
KESTOVA_INLINE bool decodeLastWord(const tSymbolTable& table, const tSymbolLookup& lookups, tWord word,
                                   tBitRange& range, unsigned char*& out)
{
    while (word.count >= table.width())
    {
        const std::uint64_t index = word.bits & lookups.mask, length = lookups.take(index, word.bits, out);
        if (length == 0)
            return decodeLong(table, lookups.entries[index], range, out);
        range.pos += length;
        word.count -= length;
    }
    const std::uint64_t entry = lookups.entries[word.bits & lookups.mask];
    const unsigned ends = tSymbolTable::endsOf(entry) & ((1U << word.count) - 1);
    le::store(out, entry);  // its symbols, and what the next ones overwrite
    out += std::popcount(ends);
    range.pos += static_cast<unsigned>(std::bit_width(ends));
    return ends != 0;
}

// Decodes a few codes, or one that is too long for the table; returns false if no whole code is left.
KESTOVA_INLINE bool decodeWord(const tSymbolTable& table, const tSymbolLookup& lookups, tBitRange& range,
                               unsigned char*& out)
{
    tWord word = wordAt(range);
    if (word.count == range.left())
        return decodeLastWord(table, lookups, word, range, out);
    const std::uint64_t index = word.bits & lookups.mask;
    std::uint64_t used = lookups.take(index, word.bits, out);
    if (used == 0)
        return decodeLong(table, lookups.entries[index], range, out);
    for (unsigned looks = 1; looks < cLooksAtOnce; ++looks)
        used += lookups.take(word.bits, out);
    range.pos += used;
    return true;
}

// Decodes while 8 bytes of the range and room are left, up to a code that is too long for the table behind its entry.
//
// A lookup waits for the one before it, and for nothing else: the bits of a round's first lookup are left over from the
// round before, and the word is filled up meanwhile.
template <unsigned cLooks>  // from one filling to the next
KESTOVA_INLINE unsigned char* decodeFast(const tSymbolTable& table, const tSymbolLookup lookups, tBitRange& range,
                                         unsigned char* out, const unsigned char* outEnd)
{
    constexpr unsigned cWidth = cLooks == 4 ? cWidthOfFour : tSymbolTable::cMostWidth;
    static_assert(64 - cLooks * cWidth >= cWidth);
    const unsigned char* const lastFrom = range.data + range.bytes() - 8;
    const unsigned char* from = range.data + range.pos / 8 + 7;
    std::uint64_t bits = le::load<std::uint64_t>(from - 7) >> (range.pos % 8);
    std::uint64_t count = cBitsLoaded - range.pos % 8;  // up to the byte at `from`, of which some may be loaded as well
    while (from <= lastFrom && static_cast<std::size_t>(outEnd - out) >= tSymbolDecoder::cSlack)
    {
        const std::uint64_t index = bits & lookups.mask;
        bits |= le::load<std::uint64_t>(from) << count;
        from += (63 - count) / 8;
        count |= cBitsLoaded;
        if (lookups.lengths[index] == 0)
        {
            // A long code. One that comes later in a round ends that round, and is found here in the next.
            const tSymbolTable::tSymbol symbol = table.longSymbol(lookups.entries[index], bits >> table.width());
            if (symbol.length == 0)
                break;
            *out++ = symbol.value;
            bits >>= table.width() + symbol.length;
            count -= table.width() + symbol.length;
            continue;
        }
        count -= lookups.take(index, bits, out);
        for (unsigned looks = 1; looks < cLooks; ++looks)
            count -= lookups.take(bits, out);
    }
    range.pos = static_cast<std::uint64_t>(from - range.data) * 8 - count;
    return out;
}

KESTOVA_INLINE unsigned char* decodeRange(const tSymbolTable& table, tBitRange& range, unsigned char* out,
                                          const unsigned char* outEnd)
{
    constexpr std::uint64_t cWorthFast = 128;  // bits; the first word alone takes 64
    const tSymbolLookup lookups(table);
    const auto goesOn = [&] {
        return range.pos < range.end && static_cast<std::size_t>(outEnd - out) >= tSymbolDecoder::cSlack;
    };
    while (goesOn())
    {
        if (range.left() >= cWorthFast)
            out = table.width() > cWidthOfFour ? decodeFast<3>(table, lookups, range, out, outEnd)
                                               : decodeFast<4>(table, lookups, range, out, outEnd);
        if (goesOn() && !decodeWord(table, lookups, range, out))
            break;
    }
    return out;
}

unsigned char* decodePortable(const tSymbolTable& table, tBitRange& range, unsigned char* out,
                              const unsigned char* outEnd)
{
    return decodeRange(table, range, out, outEnd);
}

KESTOVA_WITH_BMI2 unsigned char* decodeBmi2(const tSymbolTable& table, tBitRange& range, unsigned char* out,
                                            const unsigned char* outEnd)
{
    return decodeRange(table, range, out, outEnd);
}
}  // namespace

unsigned char* tSymbolDecoder::decode(tBitRange& range, unsigned char* out, unsigned char* outEnd) const
{
    return usesBmi2(m_instructions) ? decodeBmi2(m_table, range, out, outEnd)
                                    : decodePortable(m_table, range, out, outEnd);
}
}  // namespace huffman
