// tByteCounter: how often each byte value occurred in everything added so far.
//
// Shapes   several counters per value, used in turn: otherwise runs of one value, common in radar data, would wait for
//          the same counter at each byte. counts() sums them up. Runs of zeros, common too, are counted at once. On
//          processors with the instructions, vectors count a part of the bytes straight into the sums
//          (bytecounter_avx512.h); without them two bytes at a time are counted of large inputs.
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
    // Counters of one value are not a multiple of 4096 bytes apart: the processor would confuse their addresses.
    static constexpr std::size_t cSize = cByteValues + 16;

    std::uint32_t of[cCount][cSize];
};

class tByteCounter
{
public:
    explicit tByteCounter(eInstructions instructions = eInstructions::eBest);

    void add(const void* bytes, std::size_t len);
    void add(const tByteCounts& counts);
    void clear();
    const tByteCounts& counts();

private:
    static constexpr std::uint64_t cMostInLanes = UINT32_MAX;  // no lane can overflow before

    void addPiece(const unsigned char* bytes, std::size_t len);
    std::size_t addPairs(const unsigned char* bytes, std::size_t len);
    void sumUp();

    const bool m_vectors;
    std::uint64_t m_inLanes = 0;  // bytes counted in the lanes, at most: some of them may be in m_counts
    tCounterLanes m_lanes{};
    alignas(64) tByteCounts m_counts{};  // a vector's counters lie in one cache line
};
}  // namespace huffman

#endif
