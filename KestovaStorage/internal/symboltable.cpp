#include "KestovaStorage/internal/symboltable.h"

#include <algorithm>

namespace huffman
{
namespace
{
unsigned widthFor(std::uint64_t bits)
{
    unsigned width = 8;
    while (width < tSymbolTable::cMostWidth && bits >> width >= 64)
        ++width;
    return width;
}
}  // namespace

void tSymbolTable::build(const tFreqTable& freqs, std::uint64_t bits)
{
    m_tree.emplace(freqs);
    if (!m_tree->hasCodes())
        return;
    constexpr std::uint64_t cWorthJoining = 2048;
    m_mostSymbols = bits < cWorthJoining ? 1 : cMostSymbols;
    m_width = widthFor(bits);
    m_entries.resize(std::size_t{1} << m_width);
    m_first.assign(m_entries.size(), {0, 0});
    m_longs.assign(1, {0, 0});
    fillFirst();
    for (std::size_t index = 0; index < m_entries.size(); ++index)
    {
        if (m_first[index].length != 0)
            m_entries[index] = joined(index);
    }
}

// Codes up to the width fill every entry that begins with them; entries that lead further into the tree hold the node.
void tSymbolTable::fillFirst()
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
        const tSymbol symbol{m_tree->value(node), static_cast<std::uint8_t>(code.length)};
        m_lengths[symbol.value] = symbol.length;
        if (code.length > m_width)
            continue;
        for (std::size_t index = code.bits; index < m_first.size(); index += std::size_t{1} << code.length)
            m_first[index] = symbol;
    }
}

std::uint64_t tSymbolTable::joined(std::size_t index) const
{
    std::uint64_t bytes = 0, symbols = 0, bits = 0;
    while (symbols < m_mostSymbols)
    {
        const tSymbol next = m_first[index >> bits];
        if (next.length == 0 || bits + next.length > m_width)
            break;
        bytes |= std::uint64_t{next.value} << (8 * symbols);
        bits += next.length;
        ++symbols;
    }
    return bytes << 16 | symbols << 8 | bits;
}

void tSymbolTable::addLongs(std::size_t node)
{
    std::uint64_t& entry = m_entries[m_tree->code(node).bits];
    const unsigned height = heightOf(node);
    entry = std::uint64_t{node} << 16;
    if (height > cMostLongWidth)
        return;
    entry |= std::uint64_t{m_longs.size()} << 40 | std::uint64_t{height} << 32;
    for (std::uint64_t bits = 0; bits >> height == 0; ++bits)
        m_longs.push_back(walk(node, bits));
}

// Bits of the longest code below a node.
unsigned tSymbolTable::heightOf(std::size_t node) const
{
    return m_tree->isLeaf(node) ? 0 : 1 + std::max(heightOf(m_tree->left(node)), heightOf(m_tree->right(node)));
}

// Where these bits, enough of them, lead to from an inner node.
tSymbolTable::tSymbol tSymbolTable::walk(std::size_t node, std::uint64_t bits) const
{
    std::uint8_t steps = 0;
    for (; !m_tree->isLeaf(node); bits >>= 1, ++steps)
        node = (bits & 1) != 0 ? m_tree->left(node) : m_tree->right(node);
    return {m_tree->value(node), steps};
}
}  // namespace huffman
