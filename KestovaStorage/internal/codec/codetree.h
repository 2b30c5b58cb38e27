// tCodeTree: the Huffman tree of a table of counts, and the code of every byte value.
//
// Shapes   leaves are nodes 0, 1, 2 ... in ascending order of their bytes, inner nodes follow in the order in which
//          they were made, the root is the last node. A left branch is a 1 in the code, a right branch a 0.
// Format   which of two equal counts comes first is decided by the moves of the heap alone; files depend on it, so
//          these moves are written out here and not left to a library.
// Memory   all in the object, about 14 KB, and some 3 KB of stack while it is made; nothing is allocated.
#ifndef KESTOVA_STORAGE_CODEC_CODETREE_H
#define KESTOVA_STORAGE_CODEC_CODETREE_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "KestovaStorage/internal/codec/bytecounter.h"

namespace huffman
{
// The leaves of a tree: its byte values and their counts. A value may be present with a count of 0.
struct tFreqTable
{
    tByteCounts counts{};
    std::array<std::uint8_t, cByteValues> values;  // those present, ascending
    std::size_t variety = 0;                       // their number

    static tFreqTable of(const tByteCounts& counts);  // the values that occur
    template <typename tIsThere>
    void list(tIsThere isThere);  // sets `values` to the byte values for which the predicate holds
};

template <typename tIsThere>
void tFreqTable::list(tIsThere isThere)
{
    std::size_t number = 0;
    for (std::size_t value = 0; value < cByteValues; ++value)
    {
        values[number] = static_cast<std::uint8_t>(value);  // overwritten by the next one unless present
        number += isThere(value) ? 1 : 0;
    }
    variety = number;
}

// A code: its bits from bit 0 upwards, and how many. Kept: from position 31 on the bits are not faithful (position 31
// sets bits 31 to 63, later ones begin again at bit 0); files with such codes were written so.
struct tCode
{
    std::uint64_t bits;
    unsigned length;
};
constexpr unsigned cLongestFaithfulCode = 31;

inline std::uint64_t packedCodeBit(std::size_t position)
{
    const std::uint32_t bit = std::uint32_t{1} << (position % 32);
    return static_cast<std::uint64_t>(std::int64_t{static_cast<std::int32_t>(bit)});
}

class tCodeTree
{
public:
    static constexpr std::size_t cMostNodes = 2 * cByteValues - 1;

    explicit tCodeTree(const tFreqTable& freqs);

    std::size_t size() const { return m_size; }
    std::size_t leaves() const { return m_leaves; }
    std::size_t root() const { return m_size - 1; }
    bool isLeaf(std::size_t node) const { return node < m_leaves; }
    bool hasCodes() const { return m_leaves > 1; }  // a single leaf has a code without bits

    std::size_t left(std::size_t inner) const { return m_left[inner - m_leaves]; }
    std::size_t right(std::size_t inner) const { return m_right[inner - m_leaves]; }
    std::uint8_t value(std::size_t leaf) const { return m_values[leaf]; }
    std::uint64_t freq(std::size_t node) const { return m_freqs[node]; }
    const tCode& code(std::size_t node) const { return m_codes[node]; }  // the path from the root

    unsigned longest() const { return m_longest; }    // code, in bits
    unsigned shortest() const { return m_shortest; }  // code, in bits

private:
    struct tHeapEntry
    {
        std::uint64_t freq;
        std::uint16_t node;
    };
    class tHeap;

    void makeTree(tHeap& heap);
    void assignCodes();

    std::size_t m_size = 0;
    std::size_t m_leaves = 0;
    unsigned m_longest = 0;
    unsigned m_shortest = 0;
    std::array<std::uint8_t, cByteValues> m_values;
    std::array<std::uint16_t, cByteValues> m_left, m_right;  // of inner nodes
    std::array<std::uint64_t, cMostNodes> m_freqs;
    std::array<tCode, cMostNodes> m_codes;
};

// The codes by byte value; undefined for values that are not present.
struct tCodeTable
{
    std::array<tCode, cByteValues> codes;
    std::array<bool, cByteValues> present{};
    std::array<std::uint8_t, cByteValues> values;  // those present, ascending
    std::size_t variety = 0;                       // their number
    unsigned longest = 0, shortest = 0;            // code, in bits

    void set(const tCodeTree& tree);
    void clear();
};
}  // namespace huffman

#endif
