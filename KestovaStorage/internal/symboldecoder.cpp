#include "KestovaStorage/internal/symboldecoder.h"

#include <algorithm>

#include "KestovaStorage/internal/littleendian.h"
#include "KestovaStorage/internal/symbollook.h"

namespace huffman
{
namespace
{
// 57 bits or more from the range's place on, as far as it has them; zeros behind its last byte.
std::uint64_t bitsAt(const tBitRange& range)
{
    const std::size_t byte = static_cast<std::size_t>(range.pos / 8);
    const std::size_t there = range.bytes() - byte;
    if (there >= 8)
        return le::load<std::uint64_t>(range.data + byte) >> (range.pos % 8);
    unsigned char last[8] = {};
    std::memcpy(last, range.data + byte, there);
    return le::load<std::uint64_t>(last) >> (range.pos % 8);
}

// A code longer than the table is wide: goes on along the tree from where its first bits lead to.
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

// Decodes what 57 bits hold, or one long code; false where no whole code is left in the range.
bool decodeStep(const tSymbolTable& table, tBitRange& range, unsigned char*& out)
{
    const std::uint64_t* const entries = table.entries();
    const std::uint64_t mask = (std::uint64_t{1} << table.width()) - 1;
    const std::uint64_t there = std::min<std::uint64_t>(range.left(), cBitsThere);
    std::uint64_t bits = bitsAt(range), entry = entries[bits & mask], used = 0;
    for (unsigned looks = 0; looks < cLooksAtOnce; ++looks)
    {
        if (tSymbolTable::bitsOf(entry) == 0 || used + tSymbolTable::bitsOf(entry) > there)
            break;
        used += tSymbolTable::bitsOf(look(entries, mask, bits, out));
        entry = entries[bits & mask];
    }
    range.pos += used;
    if (used != 0)
        return true;
    if (tSymbolTable::bitsOf(entry) == 0)
        return decodeLong(table, entry, range, out);
    const auto symbol = static_cast<std::uint8_t>(tSymbolTable::bytesOf(entry) & 0xff);  // the first of several
    if (table.lengthOf(symbol) > range.left())
        return false;
    *out++ = symbol;
    range.pos += table.lengthOf(symbol);
    return true;
}

// Decodes while 8 bytes of the range and room are left and no code comes that is too long for the table behind its
// entry.
KESTOVA_INLINE unsigned char* decodeFast(const tSymbolTable& table, tBitRange& range, unsigned char* out,
                                         const unsigned char* outEnd)
{
    const std::uint64_t* const entries = table.entries();
    const std::uint64_t mask = (std::uint64_t{1} << table.width()) - 1;
    const unsigned char* const lastFrom = range.data + range.bytes() - 8;
    const unsigned char* from = range.data + range.pos / 8 + 7;
    std::uint64_t bits = le::load<std::uint64_t>(from - 7) >> (range.pos % 8);
    // The bits that are there; those of the byte at `from` may be, too. Whole entries are subtracted for the length in
    // their lowest byte: only the low 6 bits mean something.
    std::uint64_t count = cBitsThere - range.pos % 8;
    while (from <= lastFrom && static_cast<std::size_t>(outEnd - out) >= tSymbolDecoder::cSlack)
    {
        bits |= le::load<std::uint64_t>(from) << (count & 63);
        from += ~count >> 3 & 7;
        count |= cBitsThere;
        const std::uint64_t entry = look(entries, mask, bits, out);
        if (tSymbolTable::bitsOf(entry) == 0)
        {
            // A long code; one that comes later in this round is met here in the next.
            const tSymbolTable::tSymbol symbol = table.longSymbol(entry, bits >> table.width());
            if (symbol.length == 0)
                break;
            *out++ = symbol.value;
            bits >>= table.width() + symbol.length;
            count -= table.width() + symbol.length;
            continue;
        }
        count -= entry;
        for (unsigned looks = 1; looks < cLooksAtOnce; ++looks)
            count -= look(entries, mask, bits, out);
    }
    range.pos = static_cast<std::uint64_t>(from - range.data) * 8 - (count & 63);
    return out;
}

unsigned char* decodeFastPortable(const tSymbolTable& table, tBitRange& range, unsigned char* out,
                                  const unsigned char* outEnd)
{
    return decodeFast(table, range, out, outEnd);
}

KESTOVA_WITH_BMI2 unsigned char* decodeFastBmi2(const tSymbolTable& table, tBitRange& range, unsigned char* out,
                                                const unsigned char* outEnd)
{
    return decodeFast(table, range, out, outEnd);
}
}  // namespace

unsigned char* tSymbolDecoder::decode(tBitRange& range, unsigned char* out, unsigned char* outEnd) const
{
    constexpr std::uint64_t cWorthFast = 128;  // bits
    const auto fast = usesBmi2(m_instructions) ? decodeFastBmi2 : decodeFastPortable;
    const auto goesOn = [&] { return range.pos < range.end && static_cast<std::size_t>(outEnd - out) >= cSlack; };
    while (goesOn())
    {
        if (range.left() >= cWorthFast)
            out = fast(m_table, range, out, outEnd);
        if (goesOn() && !decodeStep(m_table, range, out))
            break;
    }
    return out;
}
}  // namespace huffman
