// One lookup in a tSymbolTable: the step of every decoding loop.
#ifndef KESTOVA_STORAGE_CODEC_SYMBOLLOOKUP_H
#define KESTOVA_STORAGE_CODEC_SYMBOLLOOKUP_H

#include "KestovaStorage/internal/codec/symboldecoder.h"
#include "common/byteorder.h"

namespace huffman
{
// The pointers of a table, which loops keep in registers.
struct tSymbolLookup
{
    const std::uint8_t* lengths;
    const std::uint64_t* entries;
    std::uint64_t mask;

    explicit tSymbolLookup(const tSymbolTable& table)
        : lengths(table.lengths()), entries(table.entries()), mask((std::uint64_t{1} << table.width()) - 1)
    {}

    // Writes the symbols of the bits at `index` and shifts their codes out of `bits`; returns the length of these
    // codes. Does nothing if no whole code is among the bits.
    KESTOVA_INLINE std::uint64_t take(std::uint64_t index, std::uint64_t& bits, unsigned char*& out) const
    {
        const std::uint64_t length = lengths[index], entry = entries[index];
        le::store(out, entry);  // its symbols, and what the next ones overwrite
        out += tSymbolTable::symbolsOf(entry);
        bits >>= length & 63;
        return length;
    }
    KESTOVA_INLINE std::uint64_t take(std::uint64_t& bits, unsigned char*& out) const
    {
        return take(bits & mask, bits, out);
    }
};
}  // namespace huffman

#endif
