// tSymbolTable: the symbols that the next bits of a stream of codes stand for, several at a time.
//
// Shapes   two tables with a place for every value of the next width() bits; the whole codes among these bits, six at
//          most, are what a lookup takes:
//            lengths  how many bits they have; 0 if not even the first one is whole. A table of its own: each
//                     lookup waits for the length of the one before, and bytes stay in the first-level cache.
//            entries  bits 0 to 47   the symbols, first one lowest; undefined behind the last one
//                     bits 48 to 60  their ends: bit 48 is set if one ends with the first bit, and so on
//                     bits 61 to 63  the number of symbols
//          An entry without symbols holds the node of the tree that its bits lead to (bits 0 to 15) and the place and
//          width of a table of its own for the bits behind it (bits 24 to 47 and 16 to 23; width 0: none, as some of
//          the codes are too long).
// Threads  built once, then only read.
#ifndef KESTOVA_STORAGE_CODEC_SYMBOLTABLE_H
#define KESTOVA_STORAGE_CODEC_SYMBOLTABLE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "KestovaStorage/internal/codec/codetree.h"
#include "KestovaStorage/internal/codec/processor.h"

namespace huffman
{
class tSymbolTable
{
public:
    static constexpr unsigned cMostWidth = 13;
    static constexpr unsigned cMostSymbols = 6;

    // For decoding about this many bits: a wide table for a short stream costs more than it gains. After std::bad_alloc
    // there are no codes.
    void build(const tFreqTable& freqs, std::uint64_t bits, eInstructions instructions = eInstructions::eBest);
    bool hasCodes() const { return m_built; }

    unsigned width() const { return m_width; }
    const std::uint8_t* lengths() const { return m_lengths.data(); }
    const std::uint64_t* entries() const { return m_entries.data(); }
    const tCodeTree& tree() const { return *m_tree; }  // requires hasCodes()

    struct tSymbol
    {
        std::uint8_t value;
        std::uint8_t length;  // of its code in bits; 0: not known from the bits looked at
    };
    // Returns the symbol of an entry without symbols; `more`: the bits behind those of the entry. Its length is what
    // the code has beyond width().
    tSymbol longSymbol(std::uint64_t entry, std::uint64_t more) const
    {
        const unsigned width = entry >> 16 & 0xff;
        return m_longs[(entry >> 24) + (more & ((1U << width) - 1))];
    }
    static std::size_t nodeOf(std::uint64_t entry) { return entry & 0xffff; }

    static unsigned symbolsOf(std::uint64_t entry) { return static_cast<unsigned>(entry >> 61); }
    static unsigned endsOf(std::uint64_t entry) { return entry >> 48 & ((1U << cMostWidth) - 1); }

private:
    static constexpr unsigned cMostLongWidth = 8;

    void fill();
    void addLongs(std::size_t node);
    unsigned heightOf(std::size_t node) const;
    tSymbol walk(std::size_t node, std::uint64_t bits) const;

    std::optional<tCodeTree> m_tree;
    bool m_built = false;
    unsigned m_width = 0;
    std::vector<std::uint8_t> m_lengths;
    std::vector<std::uint64_t> m_entries;
    std::vector<tSymbol> m_longs;  // tables behind entries; the first one stands for "not known"
};
}  // namespace huffman

#endif
