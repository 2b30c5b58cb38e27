// Writes and reads the heads of Huffman files and byte arrays. No other file holds the offsets of their fields.
#ifndef KESTOVA_STORAGE_CODEC_HUFFMANFORMAT_H
#define KESTOVA_STORAGE_CODEC_HUFFMANFORMAT_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "KestovaStorage/huffmanhead.h"
#include "KestovaStorage/internal/codec/codetree.h"

namespace huffman
{
static_assert(sizeof(tAlphaFreq) == 5 && offsetof(tAlphaFreq, freq) == 1);
static_assert(sizeof(tFileHead) == 1303 && offsetof(tFileHead, alphaVariety) == 4);
static_assert(offsetof(tFileHead, lastValidBit) == 6 && offsetof(tFileHead, reserve) == 7);
static_assert(offsetof(tFileHead, alphaFreqs) == 23);
static_assert(sizeof(tByteArrayHead) == 7 && offsetof(tByteArrayHead, alphaVariety) == 4);
static_assert(offsetof(tByteArrayHead, lastValidBit) == 6);
static_assert(sizeof(tByteArrayAlphaFreq) == 3 && offsetof(tByteArrayAlphaFreq, freq) == 1);

// Returns the bytes of a tFileHead. `bits`: of all codes.
std::string fileHeadBytes(const tFreqTable& freqs, std::uint64_t bits);
// Reads the counts from the tFileHead at `head`. Returns false, and leaves `freqs` unchanged, if its magic is not that
// of a Huffman file. Reads at most the 256 entries that a head has, however many it claims.
bool readFileHead(const void* head, tFreqTable& freqs);

constexpr std::size_t byteArrayHeadSize(std::size_t variety)
{
    return sizeof(tByteArrayHead) + sizeof(tByteArrayAlphaFreq) * variety;
}
// Writes byteArrayHeadSize(freqs.variety) bytes to `to`; returns the end of them.
char* writeByteArrayHead(const tFreqTable& freqs, std::uint64_t bits, char* to);

struct tByteArrayContents
{
    tFreqTable freqs;
    const char* payload;
    std::size_t payloadLen;  // not 0
    std::uint64_t bits;      // valid ones of the payload
};
// Returns false for anything but a byte array with a payload.
bool readByteArray(const char* src, std::size_t len, tByteArrayContents& contents);

// Returns the valid bits of a last byte of which a head or a caller claims this many.
constexpr unsigned bitsOfLastByte(unsigned claimed)
{
    return claimed > 8 ? 8 : claimed;
}
}  // namespace huffman

#endif
