#include "KestovaStorage/internal/codec/codetree.h"

#include <algorithm>

namespace huffman
{
tFreqTable tFreqTable::of(const tByteCounts& counts)
{
    tFreqTable table;
    table.counts = counts;
    table.list([&](std::size_t value) { return counts[value] != 0; });
    return table;
}

// A binary heap with the smallest count on top; the children of place i are at 2i + 1 and 2i + 2. Counts and nodes are
// kept apart: each is written and read in one piece, so that the processor can forward the store to the load.
class tCodeTree::tHeap
{
public:
    std::size_t size() const { return m_size; }

    void push(const tHeapEntry& entry) { raise(m_size++, entry); }

    // The hole at the top moves down to the bottom along the smaller child, the right one of two equal ones; the last
    // entry is put there, and raised.
    tHeapEntry pop()
    {
        const tHeapEntry top{m_freqs[0], m_nodes[0]};
        const std::size_t size = --m_size;
        const tHeapEntry last{m_freqs[size], m_nodes[size]};
        std::size_t hole = 0;
        std::size_t child = 2;
        for (; child < size; child = 2 * hole + 2)
        {
            child -= m_freqs[child] > m_freqs[child - 1];
            move(child, hole);
            hole = child;
        }
        if (child == size)  // a left child alone
        {
            move(child - 1, hole);
            hole = child - 1;
        }
        raise(hole, last);
        return top;
    }

private:
    void move(std::size_t from, std::size_t to)
    {
        m_freqs[to] = m_freqs[from];
        m_nodes[to] = m_nodes[from];
    }

    void raise(std::size_t place, const tHeapEntry& entry)
    {
        while (place > 0 && m_freqs[(place - 1) / 2] > entry.freq)
        {
            move((place - 1) / 2, place);
            place = (place - 1) / 2;
        }
        m_freqs[place] = entry.freq;
        m_nodes[place] = entry.node;
    }

    std::array<std::uint64_t, cByteValues + 1> m_freqs;
    std::array<std::uint16_t, cByteValues + 1> m_nodes;
    std::size_t m_size = 0;
};

tCodeTree::tCodeTree(const tFreqTable& freqs) : m_size(freqs.variety), m_leaves(freqs.variety), m_values(freqs.values)
{
    tHeap heap;
    for (std::size_t leaf = 0; leaf < m_leaves; ++leaf)
    {
        m_freqs[leaf] = freqs.counts[m_values[leaf]];
        heap.push({m_freqs[leaf], static_cast<std::uint16_t>(leaf)});
    }
    makeTree(heap);
    assignCodes();
}

void tCodeTree::makeTree(tHeap& heap)
{
    while (heap.size() > 1)
    {
        const tHeapEntry left = heap.pop();
        const tHeapEntry right = heap.pop();
        m_left[m_size - m_leaves] = left.node;
        m_right[m_size - m_leaves] = right.node;
        m_freqs[m_size] = left.freq + right.freq;
        heap.push({m_freqs[m_size], static_cast<std::uint16_t>(m_size)});
        ++m_size;
    }
}

// Parents come behind their children: going backwards, every node has its code before its children need it.
void tCodeTree::assignCodes()
{
    if (m_size == 0)
        return;
    m_codes[root()] = {};
    for (std::size_t node = root(); node >= m_leaves; --node)
    {
        const tCode& code = m_codes[node];
        m_codes[left(node)] = {code.bits | packedCodeBit(code.length), code.length + 1};
        m_codes[right(node)] = {code.bits, code.length + 1};
    }
    m_shortest = m_codes[0].length;
    for (std::size_t leaf = 0; leaf < m_leaves; ++leaf)
    {
        m_longest = std::max(m_longest, m_codes[leaf].length);
        m_shortest = std::min(m_shortest, m_codes[leaf].length);
    }
}

void tCodeTable::set(const tCodeTree& tree)
{
    clear();
    variety = tree.leaves();
    longest = tree.longest();
    shortest = tree.shortest();
    for (std::size_t leaf = 0; leaf < variety; ++leaf)
    {
        values[leaf] = tree.value(leaf);
        codes[values[leaf]] = tree.code(leaf);
        present[values[leaf]] = true;
    }
}

void tCodeTable::clear()
{
    present.fill(false);
    variety = 0;
    longest = shortest = 0;
}
}  // namespace huffman
