// One lookup in a tSymbolTable, the step that all loops are made of.
#ifndef KESTOVA_STORAGE_CODEC_SYMBOLLOOK_H
#define KESTOVA_STORAGE_CODEC_SYMBOLLOOK_H

#include "KestovaStorage/internal/codec/symboldecoder.h"
#include "common/byteorder.h"

namespace huffman
{
// A table, in registers.
struct tLookups
{
    const std::uint8_t* lengths;
    const std::uint64_t* entries;
    std::uint64_t mask;

    explicit tLookups(const tSymbolTable& table)
        : lengths(table.lengths()), entries(table.entries()), mask((std::uint64_t{1} << table.width()) - 1)
    {}

    // The symbols of the bits at `index` go out, their codes out of `bits`; returns how many bits these have. Nothing
    // happens where no whole code is among them.
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
