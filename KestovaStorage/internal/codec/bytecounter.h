// tByteCounter: how often each byte value occurred in everything added so far.
//
// Shapes   several counters a value, taken in turn: runs of one value, which radar data is full of, then do not wait
//          for the same counter time and again. They are summed up when the counts are asked for. Where the processor
//          can, vectors count a part of the bytes straight into the sums (see vectorcounter.h).
// Threads  starts none and locks nothing: one thread at a time.
#ifndef KESTOVA_STORAGE_CODEC_BYTECOUNTER_H
#define KESTOVA_STORAGE_CODEC_BYTECOUNTER_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "KestovaStorage/internal/codec/processor.h"

namespace huffman
{
constexpr std::size_t cByteValues = 256;
using tByteCounts = std::array<std::uint64_t, cByteValues>;

// Counters of every value, several of each.
struct tCounterLanes
{
    static constexpr std::size_t cCount = 8;
    // Counters of one value do not lie a multiple of 4096 bytes apart: the processor would take them for the same.
    static constexpr std::size_t cSize = cByteValues + 16;

    std::uint32_t of[cCount][cSize];
};

class tByteCounter
{
public:
    explicit tByteCounter(eInstructions instructions = eInstructions::best);

    void add(const void* bytes, std::size_t len);
    void add(const tByteCounts& counts);
    void clear();
    const tByteCounts& counts();

private:
    static constexpr std::uint64_t cMostInLanes = UINT32_MAX;  // no lane can overflow before

    void addPiece(const unsigned char* bytes, std::size_t len);
    void sumUp();

    const bool m_vectors;
    std::uint64_t m_inLanes = 0;  // bytes counted in the lanes, at most: some of them may be in m_counts
    tCounterLanes m_lanes{};
    alignas(64) tByteCounts m_counts{};  // a vector's counters lie in one cache line
};
}  // namespace huffman

#endif
