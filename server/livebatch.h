// tBatchBuilder: spokes as one binary message for viewers, little-endian.
//
//   0 u8 version 1     1 u8 kind 1       2 u16 spokes     4 u32 source     8 u32 epoch     12 u32 flags
//  16 u64 number of the batch in its source
// Then each spoke, at a multiple of 8 bytes:
//   0 u64 time ms      8 u32 bearing from   12 u32 bearing to (2^32 a turn)   16 f32 first cell m   20 f32 cell m
//  24 u32 sequence    28 u32 cells          32 f32 heading degrees or NaN     36 u8 bits            37 u8 bytes a cell
//  38 u8 reference    39 u8 0               40 cells
#ifndef KESTOVA_SERVER_LIVEBATCH_H
#define KESTOVA_SERVER_LIVEBATCH_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "KestovaRecordings/spoke.h"

namespace server
{
// A batch as viewers get it: one encoding for all of them.
struct tBatch
{
    std::shared_ptr<const std::string> bytes;
    std::size_t spokes = 0;
    double turns = 0;  // that the antenna turned during it
};

struct tBatchHead
{
    std::uint32_t source, epoch, flags;
    std::uint64_t number;
};
constexpr std::uint32_t cBeforePlace = 1, cWhole = 2;  // flags

// Sums up what the antenna turns, from spoke to spoke, whichever way.
class tSweep
{
public:
    // Returns the part of a turn since the spoke before, at most a half.
    double add(double bearingFrom);

private:
    std::optional<double> m_last;
};

// One thread at a time.
class tBatchBuilder
{
public:
    void add(const recordings::tSpoke& spoke, std::uint64_t timeMs, std::optional<double> headingDeg, double turned);
    std::size_t spokes() const { return m_spokes; }
    bool isFull() const;
    tBatch take(const tBatchHead& head);  // and begins the next one

private:
    std::string m_bytes;
    std::size_t m_spokes = 0;
    double m_turns = 0;
};
}  // namespace server

#endif
