// What stands in front of Huffman codes: the head of a file and the head of a byte array. docs/formats.md describes
// both, with what follows them.
#ifndef KESTOVA_HUFFMANHEAD_H
#define KESTOVA_HUFFMANHEAD_H

#include <stdint.h>

#include "KestovaStorage/filehead.h"

namespace huffman
{
typedef uint64_t tHuffmanDataUnit;  // codes are gathered from bit 0 upwards and stored 8 bytes at a time, little-endian

#pragma pack(push, 1)
struct tAlphaFreq
{
    uint8_t alpha;  // the byte value
    uint32_t freq;  // the low 32 bits of its count
};

// In front of the codes of a file, always whole; little-endian.
struct tFileHead
{
    uint32_t head;               // storage::cHuffmanFileHead
    uint16_t alphaVariety;       // distinct byte values, 1 to 256
    uint8_t lastValidBit;        // valid bits in the last unit, 1 to 64; 64 also if there are no codes
    uint8_t reserve[16];         // zero
    tAlphaFreq alphaFreqs[256];  // the first alphaVariety ones, ascending; the rest zero
};

// In front of a byte array; alphaVariety entries tByteArrayAlphaFreq follow, then the codes.
struct tByteArrayHead
{
    uint32_t head;          // storage::cHuffmanFileHead
    uint16_t alphaVariety;  // distinct byte values
    uint8_t lastValidBit;   // valid bits in the last byte, 1 to 8; 8 also if there are no codes
};

struct tByteArrayAlphaFreq
{
    uint8_t alpha;
    uint16_t freq;  // the low 16 bits of its count
};
#pragma pack(pop)
}  // namespace huffman

#endif
