// Emits codes of up to 16 bits 64 bytes at a time, on processors that look up and shift that many at once (AVX-512 with
// byte permutations). The tables stay in registers: a lookup reads no memory.
#ifndef KESTOVA_STORAGE_CODEC_CODEEMITTER_AVX512_H
#define KESTOVA_STORAGE_CODEC_CODEEMITTER_AVX512_H

#include <cstddef>
#include <cstdint>

#include "KestovaStorage/internal/codec/bitappender.h"
#include "KestovaStorage/internal/codec/codetree.h"

namespace huffman
{
// The codes of all byte values as they are loaded into registers.
struct tVectorTables
{
    static constexpr unsigned cLongest = 16;
    static constexpr std::uint8_t cNotHere = 64;  // as length: no code, or a longer one

    alignas(64) std::uint8_t low[cByteValues] = {};   // bits 0 to 7
    alignas(64) std::uint8_t high[cByteValues] = {};  // bits 8 to 15
    alignas(64) std::uint8_t length[cByteValues] = {};

    void set(const tCodeTable& codes);
};

// Returns whether this processor has the instructions.
bool hasVectorEmitter();
// Returns the number of bytes emitted, fewer if one has no code. `longGroups`: eight codes usually fit in a word.
std::size_t emitVectors(const tVectorTables& tables, bool longGroups, const std::uint64_t* singles,
                        const unsigned char* data, std::size_t len, tByteAppender& end);
std::size_t emitVectors(const tVectorTables& tables, bool longGroups, const std::uint64_t* singles,
                        const unsigned char* data, std::size_t len, tUnitAppender& end);
}  // namespace huffman

#endif
