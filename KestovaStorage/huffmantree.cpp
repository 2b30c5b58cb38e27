#include "KestovaStorage/huffmantree.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <functional>
#include <vector>

#include "KestovaStorage/internal/codec/codetree.h"
#include "UdpSocket/consoleprint.h"

namespace huffman
{
class tHuffmanTreePrivate
{
public:
    explicit tHuffmanTreePrivate(const tCodeTree& tree);

    std::vector<tNode> m_nodes;  // the root last
};

namespace
{
tFreqTable freqTable(const tAlphaFreqMap& alphaFreq)
{
    tFreqTable freqs;
    for (const auto& [alpha, freq] : alphaFreq)
    {
        freqs.counts[alpha] = freq;
        freqs.values[freqs.variety++] = alpha;
    }
    return freqs;
}

__attribute__((format(printf, 2, 3))) void append(std::string& text, const char* format, ...)
{
    char line[320];  // a line with the longest code, 255 characters, fits
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    text += line;
}
}  // namespace

tHuffmanTreePrivate::tHuffmanTreePrivate(const tCodeTree& tree) : m_nodes(tree.size())
{
    for (std::size_t i = 0; i < tree.size(); ++i)
    {
        if (tree.isLeaf(i))
            m_nodes[i] = {tree.value(i), tree.freq(i), nullptr, nullptr};
        else
            m_nodes[i] = {'*', tree.freq(i), &m_nodes[tree.left(i)], &m_nodes[tree.right(i)]};
    }
}

tHuffmanTree::tHuffmanTree(const tAlphaFreqMap& alphaFreq) : d(new tHuffmanTreePrivate(tCodeTree(freqTable(alphaFreq))))
{}

tHuffmanTree::~tHuffmanTree()
{
    delete d;
}

tNode tHuffmanTree::GetHuffmanTree()
{
    return d->m_nodes.empty() ? tNode{0, 0, nullptr, nullptr} : d->m_nodes.back();
}

void tHuffmanTree::GetHuffmanCode(tHuffmanCodeMap& codes)
{
    codes.clear();
    if (!d->m_nodes.empty())
        huffmanCode(&d->m_nodes.back(), std::string(), codes);
}

void tHuffmanTree::deleteTree(const tNode* node)
{
    const std::less<const tNode*> before;
    const tNode* const own = d->m_nodes.data();
    if (node == nullptr || (!before(node, own) && before(node, own + d->m_nodes.size())))
        return;
    deleteTree(node->left);
    deleteTree(node->right);
    delete node;
}

void tHuffmanTree::huffmanCode(const tNode* node, const std::string& prefix, tHuffmanCodeMap& codes)
{
    if (node->left != nullptr)
        huffmanCode(node->left, prefix + '1', codes);
    if (node->right != nullptr)
        huffmanCode(node->right, prefix + '0', codes);
    if (node->left == nullptr && node->right == nullptr)
        codes.emplace(node->value, prefix);
}

void tHuffmanTree::HuffmanCodeMap2EncodeMap(const tHuffmanCodeMap& codes, tHuffmanEncodeMap& encode)
{
    encode.clear();
    for (const auto& [alpha, code] : codes)
    {
        std::uint64_t packed = 0;
        for (std::size_t i = 0; i < code.size(); ++i)
            packed |= code[i] == '1' ? packedCodeBit(i) : 0;
        encode.emplace(alpha, std::make_pair(packed, static_cast<std::uint8_t>(code.size())));
    }
}

void tHuffmanTree::PrintAlphaFreq(const tAlphaFreqMap& alphaFreq)
{
    if (alphaFreq.empty())
        return;
    std::string text;
    append(text, "************ AlphaFreq %zu************\r\n", alphaFreq.size());
    std::uint64_t total = 0;
    std::size_t printed = 0;
    for (const auto& [alpha, freq] : alphaFreq)
    {
        append(text, "0x%02X %" PRIu64 "  %s", unsigned{alpha}, freq, ++printed % 5 == 0 ? "\r\n" : "\t");
        total += freq;
    }
    append(text, "\r\n************  TotalFreq: 0x%08" PRIX64 " ************", total);
    Kestova::console::print("%s\r\n", text.c_str());
}

void tHuffmanTree::PrintHuffmanCodeMap(const tHuffmanCodeMap& codes, const tHuffmanEncodeMap& encode)
{
    std::string text;
    append(text, "************ HuffmanCode %zu************\r\n", codes.size());
    for (const auto& [alpha, code] : codes)
    {
        const auto& [packed, length] = encode.at(alpha);
        append(text, "0x%02X : %016" PRIX64 " %02d ", unsigned{alpha}, packed, int{length});
        text += code + "\r\n";
    }
    text += "************ HuffmanCode ************";
    Kestova::console::print("%s\r\n", text.c_str());
}
}  // namespace huffman
