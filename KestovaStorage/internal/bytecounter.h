// tByteCounter: how often each byte value occurred in everything added so far.
//
// Shapes   several counters a value, taken in turn: runs of one value, which radar data is full of, then do not wait
//          for the same counter time and again. They are summed up when the counts are asked for.
// Threads  starts none and locks nothing: one thread at a time.
#ifndef KESTOVA_INTERNAL_BYTECOUNTER_H
#define KESTOVA_INTERNAL_BYTECOUNTER_H

#include <array>
#include <cstddef>
#include <cstdint>

namespace huffman
{
constexpr std::size_t cByteValues = 256;
using tByteCounts = std::array<std::uint64_t, cByteValues>;

class tByteCounter
{
public:
    void add(const void* bytes, std::size_t len);
    void add(const tByteCounts& counts);
    void clear();
    const tByteCounts& counts();

private:
    static constexpr std::size_t cLanes = 8;
    static constexpr std::uint64_t cMostInLanes = UINT32_MAX;  // no lane can overflow before

    void addToLanes(const unsigned char* bytes, std::size_t len);
    void sumUp();

    // Counters of one value do not lie a multiple of 4096 bytes apart: the processor would take them for the same.
    static constexpr std::size_t cLaneSize = cByteValues + 16;
    std::uint32_t m_lanes[cLanes][cLaneSize] = {};
    std::uint64_t m_inLanes = 0;  // bytes counted in the lanes
    tByteCounts m_counts{};
};
}  // namespace huffman

#endif
