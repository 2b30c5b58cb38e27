// tSymbolDecoder: decodes a stretch of a bit stream through a tSymbolTable.
//
// Bounds   reads no byte before the data and none behind the last that holds bits of the range; decodes whole codes
//          that end at or before the end of the range; writes at most 8 bytes at a time, all before the output's end.
// Threads  none of its own; the table is only read.
#ifndef KESTOVA_STORAGE_CODEC_SYMBOLDECODER_H
#define KESTOVA_STORAGE_CODEC_SYMBOLDECODER_H

#include <cstddef>
#include <cstdint>

#include "KestovaStorage/internal/codec/processor.h"
#include "KestovaStorage/internal/codec/symboltable.h"

namespace huffman
{
// The bits `pos` up to `end` of the bytes at `data`.
struct tBitRange
{
    const unsigned char* data;
    std::uint64_t pos;
    std::uint64_t end;

    std::uint64_t left() const { return end - pos; }
    std::size_t bytes() const { return static_cast<std::size_t>((end + 7) / 8); }
};

constexpr unsigned cBitsLoaded = 56;  // valid in every word that is loaded, wherever in a byte it begins
constexpr unsigned cLooksAtOnce = 4;  // lookups that these suffice for
static_assert(cLooksAtOnce * tSymbolTable::cMostWidth <= cBitsLoaded);

class tSymbolDecoder
{
public:
    static constexpr std::size_t cSlack = 72;  // decode() stops when less room than this is left

    explicit tSymbolDecoder(const tSymbolTable& table, eInstructions instructions = eInstructions::eBest)
        : m_table(table), m_instructions(instructions)
    {}

    // Decodes until no whole code is left in the range, or less than cSlack bytes before `outEnd`: then codes may be
    // left. Moves range.pos behind the last code decoded; returns the end of the symbols.
    unsigned char* decode(tBitRange& range, unsigned char* out, unsigned char* outEnd) const;

private:
    const tSymbolTable& m_table;
    eInstructions m_instructions;
};
}  // namespace huffman

#endif
