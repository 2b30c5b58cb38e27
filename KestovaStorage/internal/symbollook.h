// One lookup in a tSymbolTable, the step that all fast loops are made of.
#ifndef KESTOVA_INTERNAL_SYMBOLLOOK_H
#define KESTOVA_INTERNAL_SYMBOLLOOK_H

#include "KestovaStorage/internal/littleendian.h"
#include "KestovaStorage/internal/symboldecoder.h"

namespace huffman
{
constexpr unsigned cLooksAtOnce = 4;  // of up to 12 bits each, from the 56 that are there
constexpr unsigned cBitsThere = 56;
static_assert(cLooksAtOnce * tSymbolTable::cMostWidth <= cBitsThere);
static_assert(cLooksAtOnce * tSymbolTable::cMostSymbols + 8 <= tSymbolDecoder::cSlack);

// The entry for the next bits; its symbols go out.
KESTOVA_INLINE std::uint64_t look(const std::uint64_t* entries, std::uint64_t mask, std::uint64_t& bits,
                                  unsigned char*& out)
{
    const std::uint64_t entry = entries[bits & mask];
    le::store(out, tSymbolTable::bytesOf(entry));
    out += tSymbolTable::symbolsOf(entry);
    bits >>= entry & 63;
    return entry;
}
}  // namespace huffman

#endif
