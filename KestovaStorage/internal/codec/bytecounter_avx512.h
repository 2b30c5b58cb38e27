// Counts bytes in vectors and in memory at the same time, if the processor can transpose bits and count them in vectors
// of 64 bytes (AVX-512 with GFNI and VPOPCNTDQ).
//
// Counters in memory take one store per byte, and the processor commits one store per cycle. Vectors take about as long
// per byte: the bits of 64 bytes are laid side by side, joined to one mask for each of the 16 values of either half of
// a byte, and the bits that two masks share are counted, 256 times. But they use other parts of the processor, so a
// loop that does both reaches nearly two bytes per cycle, whatever the bytes are.
#ifndef KESTOVA_STORAGE_CODEC_BYTECOUNTER_AVX512_H
#define KESTOVA_STORAGE_CODEC_BYTECOUNTER_AVX512_H

#include <cstddef>

#include "KestovaStorage/internal/codec/bytecounter.h"

namespace huffman
{
// Returns whether this processor has the instructions.
bool hasVectorCounter();
// Counts as many of the bytes as make whole strides, some into `counts` and the others into `lanes`, which must not
// overflow. Returns the number of bytes counted; the caller counts the rest.
std::size_t countVectors(const unsigned char* bytes, std::size_t len, tByteCounts& counts, tCounterLanes& lanes);
}  // namespace huffman

#endif
