// Counts bytes in vectors and in memory at the same time, where the processor can transpose bits and count them in
// vectors of 64 bytes (AVX-512 with GFNI and VPOPCNTDQ).
//
// Counters in memory take one store a byte, and the processor commits one store a cycle. Vectors need about as long for
// a byte: the bits of 64 bytes are laid side by side, joined to one mask for each of the 16 values of either half of a
// byte, and the bits that two masks share are counted, 256 times. But they need other parts of the processor, so a loop
// that does both comes to nearly two bytes a cycle, whatever the bytes are.
#ifndef KESTOVA_STORAGE_CODEC_BYTECOUNTER_AVX512_H
#define KESTOVA_STORAGE_CODEC_BYTECOUNTER_AVX512_H

#include <cstddef>

#include "KestovaStorage/internal/codec/bytecounter.h"

namespace huffman
{
// Whether this processor can.
bool hasVectorCounter();
// Counts as many of the bytes as make whole strides, some into `counts` and the others into `lanes`, where they must
// have room. Returns how many bytes that were; the rest is the caller's.
std::size_t countVectors(const unsigned char* bytes, std::size_t len, tByteCounts& counts, tCounterLanes& lanes);
}  // namespace huffman

#endif
