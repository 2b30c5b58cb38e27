// What lies in a data file, and where. No other file writes one of these offsets down.
//
//            0     4  magic: cDataFileHead or cHuffmanFileHead
//            0  1303  in a Huffman file: the coder's head, which begins with the magic
//         2000     8  tIndexHead; zero until the file is finished
//         2048  21 n  index records in the order of recording
//   10,000,000     -  the segments back to back (plain), or the bit stream of their codes (Huffman)
//
// What lies between is never written and reads as zero. All numbers are little-endian. docs/formats.md shows the same
// as tables with a hex dump.
#ifndef KESTOVA_STORAGE_DATAFILE_STORAGEFORMAT_H
#define KESTOVA_STORAGE_DATAFILE_STORAGEFORMAT_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "common/byteorder.h"

namespace storage
{
#pragma pack(push, 1)
struct tIndexHead
{
    std::uint32_t indexNum;       // records in the index
    std::uint32_t segmentMaxLen;  // bytes of the longest segment; in a Huffman file bits of its longest code
};

struct tNormalIndexTable
{
    std::uint64_t tim;  // ms since the Unix epoch; 0 ends an unfinished index
    std::uint64_t pos;  // offset of the segment's first byte
    std::uint32_t len;  // its length in bytes
};

struct tEncodedIndexTable
{
    std::uint64_t tim;
    std::uint64_t firstBytePos;  // offset of the byte that holds the segment's first code bit
    std::uint32_t huffmanBits;   // length of the segment's code in bits
    std::uint8_t firstBitPos;    // place of the first code bit in that byte, 0 to 7
};

// Kept: a slot is as wide as the wider record for both kinds, so an index of n records is 21 n bytes.
union tIndexTable
{
    tNormalIndexTable normalTable;
    tEncodedIndexTable encodedTable;
};
#pragma pack(pop)

constexpr std::uint64_t cIndexHeadPos = 2000;
constexpr std::uint64_t cIndexPos = 2048;
constexpr std::uint64_t cPayloadPos = 10'000'000;
constexpr std::uint32_t cIndexCapacity = 476'091;  // a decision: one more would still fit
constexpr std::size_t cIndexSlotSize = sizeof(tIndexTable);
constexpr std::uint64_t cIndexEndLimit = cIndexPos + cIndexSlotSize * cIndexCapacity;
constexpr std::uint64_t cLastSegmentPos = 1'048'576'000;      // a segment that starts beyond it is its file's last
constexpr std::uint64_t cTimeLimit = std::uint64_t{1} << 48;  // play order keys hold 48 bits of time
constexpr std::uint64_t cSegmentLenLimit = std::uint64_t{1} << 32;

static_assert(sizeof(tIndexHead) == 8 && sizeof(tNormalIndexTable) == 20 && cIndexSlotSize == 21);
static_assert(offsetof(tNormalIndexTable, pos) == 8 && offsetof(tNormalIndexTable, len) == 16);
static_assert(offsetof(tEncodedIndexTable, firstBytePos) == 8 && offsetof(tEncodedIndexTable, huffmanBits) == 16);
static_assert(offsetof(tEncodedIndexTable, firstBitPos) == 20);
static_assert(cIndexEndLimit == 9'999'959 && cIndexEndLimit + cIndexSlotSize <= cPayloadPos);

using tIndexSlot = std::array<unsigned char, cIndexSlotSize>;  // one index record as it stands in the file
static_assert(sizeof(tIndexSlot) == cIndexSlotSize);

inline tIndexSlot encode(const tNormalIndexTable& record)
{
    tIndexSlot slot{};  // the filler byte is 0
    le::store(&slot[offsetof(tNormalIndexTable, tim)], record.tim);
    le::store(&slot[offsetof(tNormalIndexTable, pos)], record.pos);
    le::store(&slot[offsetof(tNormalIndexTable, len)], record.len);
    return slot;
}

inline tIndexSlot encode(const tEncodedIndexTable& record)
{
    tIndexSlot slot{};
    le::store(&slot[offsetof(tEncodedIndexTable, tim)], record.tim);
    le::store(&slot[offsetof(tEncodedIndexTable, firstBytePos)], record.firstBytePos);
    le::store(&slot[offsetof(tEncodedIndexTable, huffmanBits)], record.huffmanBits);
    slot[offsetof(tEncodedIndexTable, firstBitPos)] = record.firstBitPos;
    return slot;
}

inline tNormalIndexTable decodeNormal(const tIndexSlot& slot)
{
    return {le::load<std::uint64_t>(&slot[offsetof(tNormalIndexTable, tim)]),
            le::load<std::uint64_t>(&slot[offsetof(tNormalIndexTable, pos)]),
            le::load<std::uint32_t>(&slot[offsetof(tNormalIndexTable, len)])};
}

inline tEncodedIndexTable decodeEncoded(const tIndexSlot& slot)
{
    return {le::load<std::uint64_t>(&slot[offsetof(tEncodedIndexTable, tim)]),
            le::load<std::uint64_t>(&slot[offsetof(tEncodedIndexTable, firstBytePos)]),
            le::load<std::uint32_t>(&slot[offsetof(tEncodedIndexTable, huffmanBits)]),
            slot[offsetof(tEncodedIndexTable, firstBitPos)]};
}

// Both kinds keep the time in the same place.
inline std::uint64_t timeOf(const tIndexSlot& slot)
{
    return le::load<std::uint64_t>(slot.data());
}
}  // namespace storage

#endif
