// The Huffman tree over byte values, and the codes that follow from it.
//
// Encoder and decoder build the same tree from the same counts: how ties are broken is part of the stored formats
// (docs/formats.md). Applications that only encode and decode never need this class.
#ifndef KESTOVA_HUFFMANTREE_H
#define KESTOVA_HUFFMANTREE_H

#include <map>
#include <stdint.h>
#include <string>
#include <utility>

#include "UdpSocket/kestovaapi.h"

namespace huffman
{
typedef std::map<uint8_t, uint64_t> tAlphaFreqMap;       // byte value -> how often it occurs
typedef std::map<uint8_t, std::string> tHuffmanCodeMap;  // byte value -> its code as '0' and '1', first bit first
typedef std::map<uint8_t, std::pair<uint64_t, uint8_t>> tHuffmanEncodeMap;  // byte value -> (packed code, its length)
typedef std::map<std::string, uint8_t> tHuffmanDecodeMap;                   // code -> byte value

// One node; a leaf has no children, every other node has both.
struct tNode
{
    uint8_t value;  // the leaf's byte; '*' for the others
    uint64_t freq;  // the leaf's count; for the others the sum of their children (modulo 2^64)
    tNode* left;    // the smaller child; a '1' in the code
    tNode* right;   // a '0' in the code
};

class tHuffmanTreePrivate;

// Built once, then only read: every operation may be called from several threads at once. Throws std::bad_alloc alone.
class KESTOVA_API tHuffmanTree
{
public:
    // Byte values with a count of 0 are leaves too. An empty table makes a tree without nodes.
    tHuffmanTree(const tAlphaFreqMap& alphaFreq);
    virtual ~tHuffmanTree();
    tHuffmanTree(const tHuffmanTree&) = delete;
    tHuffmanTree& operator=(const tHuffmanTree&) = delete;

    // Returns a copy of the root; the nodes below it belong to the tree and live as long. A tree without nodes returns
    // a leaf of value and count 0.
    tNode GetHuffmanTree();
    // Replaces `codes` by the code of every byte value. A tree of a single leaf has the empty code for that byte, a
    // tree without nodes has no codes.
    void GetHuffmanCode(tHuffmanCodeMap& codes);
    // Frees a subtree of nodes that the caller made with new; null is none. Nodes of this tree are left alone: they
    // live as long as the tree.
    void deleteTree(const tNode* node);
    // Adds the codes of all leaves below `node`, each beginning with `prefix`; a byte that has one keeps it.
    void huffmanCode(const tNode* node, const std::string& prefix, tHuffmanCodeMap& codes);

    // Replaces `encode` by the packed codes: the first bit of a code is bit 0 of its number. Up to 31 bits that is the
    // code itself. Longer ones cannot be restored from the number: position 31 sets all of bits 31 to 63, and later
    // positions begin again at bit 0.
    static void HuffmanCodeMap2EncodeMap(const tHuffmanCodeMap& codes, tHuffmanEncodeMap& encode);

    // Dumps for diagnosis, to standard output; nothing for an empty map of counts.
    static void PrintAlphaFreq(const tAlphaFreqMap& alphaFreq);
    static void PrintHuffmanCodeMap(const tHuffmanCodeMap& codes, const tHuffmanEncodeMap& encode);

private:
    tHuffmanTreePrivate* d;
};
}  // namespace huffman

#endif
