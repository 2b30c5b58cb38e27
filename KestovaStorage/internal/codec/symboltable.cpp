#include "KestovaStorage/internal/codec/symboltable.h"

#include <algorithm>
#include <bit>

namespace huffman
{
namespace
{
unsigned widthFor(std::uint64_t bits)
{
    unsigned width = 8;
    while (width < tSymbolTable::cMostWidth && bits >> width >= 128)
        ++width;
    return width;
}

std::uint64_t entryOf(std::uint64_t bytes, std::uint64_t ends, std::uint64_t symbols)
{
    return symbols << 61 | ends << 48 | (bytes & 0xffffffffffff);
}

// Joins an entry with one symbol and the whole codes in the entry of the bits behind that symbol.
KESTOVA_INLINE std::uint64_t joined(std::uint64_t single, unsigned length, std::uint64_t rest, unsigned width)
{
    unsigned ends = tSymbolTable::endsOf(rest) & ((1U << (width - length)) - 1);
    auto symbols = static_cast<unsigned>(std::popcount(ends));
    if (symbols == tSymbolTable::cMostSymbols)
    {
        ends ^= std::bit_floor(ends);
        --symbols;
    }
    ends = (ends << 1 | 1) << (length - 1);
    return entryOf(rest << 8 | (single & 0xff), ends, symbols + 1);
}

// Turns entries with one symbol into entries with several. As a number, the bits behind a symbol are less than the bits
// it is in, so their entry is joined already; only all zeros are followed by themselves.
KESTOVA_INLINE void join(std::uint64_t* entries, std::uint8_t* lengths, unsigned width)
{
    const auto set = [&](std::size_t index, std::uint64_t entry) {
        entries[index] = entry;
        lengths[index] = static_cast<std::uint8_t>(std::bit_width(tSymbolTable::endsOf(entry)));
    };
    if (const unsigned length = lengths[0]; length != 0)
    {
        const std::uint64_t single = entries[0];
        for (unsigned symbols = 1; symbols < tSymbolTable::cMostSymbols; ++symbols)
            set(0, joined(single, length, entries[0], width));
    }
    for (std::size_t index = 1; index >> width == 0; ++index)
    {
        if (const unsigned length = lengths[index]; length != 0)
            set(index, joined(entries[index], length, entries[index >> length], width));
    }
}

void joinPortable(std::uint64_t* entries, std::uint8_t* lengths, unsigned width)
{
    join(entries, lengths, width);
}

KESTOVA_WITH_BMI2 void joinBmi2(std::uint64_t* entries, std::uint8_t* lengths, unsigned width)
{
    join(entries, lengths, width);
}
}  // namespace

void tSymbolTable::build(const tFreqTable& freqs, std::uint64_t bits, eInstructions instructions)
{
    m_built = false;
    m_tree.emplace(freqs);
    if (!m_tree->hasCodes())
        return;
    constexpr std::uint64_t cWorthJoining = 2048;
    m_width = widthFor(bits);
    const std::size_t size = std::size_t{1} << m_width;
    m_lengths.assign(size, 0);
    m_entries.resize(size);
    m_longs.assign(1, {0, 0});
    fill();
    if (bits >= cWorthJoining)
        usesBmi2(instructions) ? joinBmi2(m_entries.data(), m_lengths.data(), m_width)
                               : joinPortable(m_entries.data(), m_lengths.data(), m_width);
    m_built = true;
}

// A code up to the width fills every entry that begins with it; entries of longer ones hold a node of the tree.
void tSymbolTable::fill()
{
    for (std::size_t node = 0; node < m_tree->size(); ++node)
    {
        const tCode& code = m_tree->code(node);
        if (!m_tree->isLeaf(node))
        {
            if (code.length == m_width)
                addLongs(node);
            continue;
        }
        if (code.length > m_width)
            continue;
        const std::uint64_t entry = entryOf(m_tree->value(node), std::uint64_t{1} << (code.length - 1), 1);
        for (std::size_t index = code.bits; index < m_entries.size(); index += std::size_t{1} << code.length)
        {
            m_entries[index] = entry;
            m_lengths[index] = static_cast<std::uint8_t>(code.length);
        }
    }
}

void tSymbolTable::addLongs(std::size_t node)
{
    std::uint64_t& entry = m_entries[m_tree->code(node).bits];
    const unsigned height = heightOf(node);
    entry = node;
    if (height > cMostLongWidth)
        return;
    entry |= std::uint64_t{m_longs.size()} << 24 | std::uint64_t{height} << 16;
    for (std::uint64_t bits = 0; bits >> height == 0; ++bits)
        m_longs.push_back(walk(node, bits));
}

// Bits of the longest code below a node.
unsigned tSymbolTable::heightOf(std::size_t node) const
{
    return m_tree->isLeaf(node) ? 0 : 1 + std::max(heightOf(m_tree->left(node)), heightOf(m_tree->right(node)));
}

// Returns the symbol that these bits, enough of them, lead to from an inner node.
tSymbolTable::tSymbol tSymbolTable::walk(std::size_t node, std::uint64_t bits) const
{
    std::uint8_t steps = 0;
    for (; !m_tree->isLeaf(node); bits >>= 1, ++steps)
        node = (bits & 1) != 0 ? m_tree->left(node) : m_tree->right(node);
    return {m_tree->value(node), steps};
}
}  // namespace huffman
