// plain: the codec once more, as slow and as simple as can be: a heap of the standard library, nodes with pointers,
// codes as text, one bit after the other. What the library makes must be the same to the last bit.
#ifndef KESTOVA_TESTS_PLAINHUFFMAN_H
#define KESTOVA_TESTS_PLAINHUFFMAN_H

#include <cstdint>
#include <map>
#include <memory>
#include <queue>
#include <string>
#include <vector>

#include "tests/support/radarpackages.h"

namespace plain
{
using tFreqs = std::map<std::uint8_t, std::uint64_t>;
using tCodes = std::map<std::uint8_t, std::string>;

struct tNode
{
    std::uint8_t value;
    std::uint64_t freq;
    std::shared_ptr<tNode> left, right;
};

inline tFreqs freqsOf(const std::string& bytes)
{
    tFreqs freqs;
    for (const char byte : bytes)
        ++freqs[static_cast<std::uint8_t>(byte)];
    return freqs;
}

// Not for empty tables.
inline tNode treeOf(const tFreqs& freqs)
{
    const auto greater = [](const tNode& a, const tNode& b) { return a.freq > b.freq; };
    std::priority_queue<tNode, std::vector<tNode>, decltype(greater)> heap(greater);
    const auto pop = [&] {
        auto node = std::make_shared<tNode>(heap.top());
        heap.pop();
        return node;
    };
    for (const auto& [value, freq] : freqs)
        heap.push({value, freq, nullptr, nullptr});
    while (heap.size() > 1)
    {
        const auto left = pop(), right = pop();
        heap.push({'*', left->freq + right->freq, left, right});
    }
    return heap.top();
}

inline void addCodes(const tNode& node, const std::string& prefix, tCodes& codes)
{
    if (!node.left)
    {
        codes.emplace(node.value, prefix);
        return;
    }
    addCodes(*node.left, prefix + '1', codes);
    addCodes(*node.right, prefix + '0', codes);
}

inline tCodes codesOf(const tFreqs& freqs)
{
    tCodes codes;
    addCodes(treeOf(freqs), "", codes);
    return codes;
}

// Bits as '0' and '1', first one first.
inline std::string encode(const std::string& bytes, const tCodes& codes)
{
    std::string bits;
    for (const char byte : bytes)
        bits += codes.at(static_cast<std::uint8_t>(byte));
    return bits;
}

inline std::string decode(const std::string& bits, const tNode& root)
{
    std::string bytes;
    const tNode* node = &root;
    for (std::size_t i = 0; root.left && i < bits.size(); ++i)
    {
        node = bits[i] == '1' ? node->left.get() : node->right.get();
        if (node->left)
            continue;
        bytes += static_cast<char>(node->value);
        node = &root;
    }
    return bytes;
}

// 8 bits a byte, the first one lowest; zeros fill the last byte.
inline std::string pack(const std::string& bits)
{
    std::string bytes((bits.size() + 7) / 8, '\0');
    for (std::size_t i = 0; i < bits.size(); ++i)
        bytes[i / 8] = static_cast<char>(bytes[i / 8] | (bits[i] - '0') << (i % 8));
    return bytes;
}

inline std::string unpack(const std::string& bytes)
{
    std::string bits;
    for (const char byte : bytes)
        for (int bit = 0; bit < 8; ++bit)
            bits += (byte >> bit & 1) != 0 ? '1' : '0';
    return bits;
}

// A head with one entry a byte value, its count `width` bytes wide; `valid` is never 0.
inline std::string head(const tFreqs& freqs, std::size_t bits, std::size_t unit, std::size_t width)
{
    std::string bytes = littleEndian(0xE0C0DE00, 4) + littleEndian(freqs.size(), 2) +
                        littleEndian(bits % unit == 0 ? unit : bits % unit, 1);
    if (width == 4)
        bytes.append(16, '\0');
    for (const auto& [value, freq] : freqs)
        bytes += littleEndian(value, 1) + littleEndian(freq, width);
    return bytes;
}

inline std::string fileHead(const tFreqs& freqs, std::size_t bits)
{
    std::string bytes = head(freqs, bits, 64, 4);
    bytes.resize(1303);
    return bytes;
}

inline std::string file(const std::string& bytes)
{
    const tFreqs freqs = freqsOf(bytes);
    const std::string bits = encode(bytes, codesOf(freqs));
    std::string payload = pack(bits);
    payload.resize((bits.size() + 63) / 64 * 8);
    return fileHead(freqs, bits.size()) + payload;
}

inline std::string byteArray(const std::string& bytes)
{
    const tFreqs freqs = freqsOf(bytes);
    const std::string bits = encode(bytes, codesOf(freqs));
    return head(freqs, bits.size(), 8, 2) + pack(bits);
}
}  // namespace plain

#endif
