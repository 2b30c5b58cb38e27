// tSymbolTable: what the next bits of a stream of codes mean, several symbols at a time.
//
// Shapes   one entry for every value of the next width() bits. It holds all whole codes among them, six at most:
//            bits 0 to 7    how many bits these codes have; 0 where not even the first one is whole
//            bits 8 to 15   how many symbols they are
//            bits 16 to 63  the symbols, first one lowest
//          An entry without symbols holds the node of the tree that its bits lead to (bits 16 to 31) and the place and
//          width of a table of its own for the bits behind it (bits 40 to 63 and 32 to 39; width 0: none, as some of
//          the codes are too long).
// Threads  built once, then only read.
#ifndef KESTOVA_INTERNAL_SYMBOLTABLE_H
#define KESTOVA_INTERNAL_SYMBOLTABLE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "KestovaStorage/internal/codetree.h"

namespace huffman
{
class tSymbolTable
{
public:
    static constexpr unsigned cMostWidth = 12;  // 32 KiB: wider tables leave the first-level cache
    static constexpr unsigned cMostSymbols = 6;

    // For decoding about this many bits: a wide table for a short stream costs more than it gains.
    void build(const tFreqTable& freqs, std::uint64_t bits);
    bool hasCodes() const { return m_tree && m_tree->hasCodes(); }

    unsigned width() const { return m_width; }
    const std::uint64_t* entries() const { return m_entries.data(); }
    const tCodeTree& tree() const { return *m_tree; }                           // hasCodes()
    unsigned lengthOf(std::uint8_t symbol) const { return m_lengths[symbol]; }  // of its code

    struct tSymbol
    {
        std::uint8_t value;
        std::uint8_t length;  // of its code in bits; 0: not known from the bits looked at
    };
    // The symbol of an entry without symbols; `more`: the bits behind those of the entry. Its length is what the code
    // has beyond width().
    tSymbol longSymbol(std::uint64_t entry, std::uint64_t more) const
    {
        const unsigned width = entry >> 32 & 0xff;
        return m_longs[(entry >> 40) + (more & ((1U << width) - 1))];
    }
    static std::size_t nodeOf(std::uint64_t entry) { return entry >> 16 & 0xffff; }

    static unsigned bitsOf(std::uint64_t entry) { return entry & 0xff; }
    static unsigned symbolsOf(std::uint64_t entry) { return entry >> 8 & 0xff; }
    static std::uint64_t bytesOf(std::uint64_t entry) { return entry >> 16; }

private:
    static constexpr unsigned cMostLongWidth = 8;

    void fillFirst();
    std::uint64_t joined(std::size_t index) const;
    void addLongs(std::size_t node);
    unsigned heightOf(std::size_t node) const;
    tSymbol walk(std::size_t node, std::uint64_t bits) const;

    std::optional<tCodeTree> m_tree;
    unsigned m_width = 0;
    unsigned m_mostSymbols = 0;  // in an entry
    std::vector<std::uint64_t> m_entries;
    std::vector<tSymbol> m_first;  // of each entry; kept for its memory
    std::vector<tSymbol> m_longs;  // tables behind entries; the first one says that nothing is known
    std::array<std::uint8_t, cByteValues> m_lengths{};
};
}  // namespace huffman

#endif
