// The layout of a data file. No other source holds one of these offsets.
//
//            0     4  magic: cDataFileHead or cHuffmanFileHead
//            0  1303  in a Huffman file: the coder's head, which begins with the magic
//         2000     8  tIndexHead; zero until the file is finished
//         2048  21 n  index records in the order of recording
//   10,000,000     -  the segments back to back (plain), or the bit stream of their codes (Huffman)
//
// What lies between is never written and reads as zero. All numbers are little-endian. docs/formats.md shows the same
// as tables with a hex dump.
#ifndef KESTOVA_DATAFILEFORMAT_H
#define KESTOVA_DATAFILEFORMAT_H

#include <array>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "KestovaStorage/filehead.h"

namespace storage
{
#pragma pack(push, 1)
struct tIndexHead
{
    uint32_t indexNum;       // records in the index
    uint32_t segmentMaxLen;  // bytes of the longest segment; in a Huffman file bits of its longest code
};

struct tNormalIndexTable
{
    uint64_t tim;  // ms since the Unix epoch; 0 ends an unfinished index
    uint64_t pos;  // offset of the segment's first byte
    uint32_t len;  // its length in bytes
};

struct tEncodedIndexTable
{
    uint64_t tim;
    uint64_t firstBytePos;  // offset of the byte that holds the segment's first code bit
    uint32_t huffmanBits;   // length of the segment's code in bits
    uint8_t firstBitPos;    // place of the first code bit in that byte, 0 to 7
};

// Kept: a slot is as wide as the wider record for both kinds, so an index of n records is 21 n bytes.
union tIndexTable
{
    tNormalIndexTable normalTable;
    tEncodedIndexTable encodedTable;
};
#pragma pack(pop)

constexpr uint64_t cIndexHeadPos = 2000;
constexpr uint64_t cIndexPos = 2048;
constexpr uint64_t cPayloadPos = 10000000;
constexpr uint32_t cIndexCapacity = 476091;  // a decision: one more would still fit
constexpr size_t cIndexSlotSize = sizeof(tIndexTable);
constexpr uint64_t cIndexEndLimit = cIndexPos + cIndexSlotSize * cIndexCapacity;
constexpr uint64_t cLastSegmentPos = 1048576000;    // a segment that starts beyond it is its file's last
constexpr uint64_t cTimeLimit = uint64_t(1) << 48;  // times are below it
constexpr uint64_t cSegmentLenLimit = uint64_t(1) << 32;

static_assert(sizeof(tIndexHead) == 8 && offsetof(tIndexHead, segmentMaxLen) == 4, "the index head has 8 bytes");
static_assert(sizeof(tNormalIndexTable) == 20 && offsetof(tNormalIndexTable, pos) == 8 &&
                  offsetof(tNormalIndexTable, len) == 16,
              "a plain record has 20 bytes");
static_assert(sizeof(tEncodedIndexTable) == 21 && offsetof(tEncodedIndexTable, firstBytePos) == 8 &&
                  offsetof(tEncodedIndexTable, huffmanBits) == 16 && offsetof(tEncodedIndexTable, firstBitPos) == 20,
              "a Huffman record has 21 bytes");
static_assert(cIndexEndLimit == 9999959 && cIndexEndLimit + cIndexSlotSize <= cPayloadPos,
              "a full index ends before the segments");

// One index record as it stands in the file.
typedef std::array<unsigned char, cIndexSlotSize> tIndexSlot;
static_assert(sizeof(tIndexSlot) == cIndexSlotSize && alignof(tIndexSlot) == 1,
              "slots follow each other as in the file");

// From the host's byte order to the file's, or back.
inline uint32_t fileOrder(uint32_t number)
{
    return __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? number : __builtin_bswap32(number);
}

inline uint64_t fileOrder(uint64_t number)
{
    return __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? number : __builtin_bswap64(number);
}

inline tIndexHead fileOrder(const tIndexHead& head)
{
    return tIndexHead{fileOrder(head.indexNum), fileOrder(head.segmentMaxLen)};
}

inline tNormalIndexTable fileOrder(const tNormalIndexTable& record)
{
    return tNormalIndexTable{fileOrder(record.tim), fileOrder(record.pos), fileOrder(record.len)};
}

inline tEncodedIndexTable fileOrder(const tEncodedIndexTable& record)
{
    return tEncodedIndexTable{fileOrder(record.tim), fileOrder(record.firstBytePos), fileOrder(record.huffmanBits),
                              record.firstBitPos};
}

// The slot of a record. Bytes that a plain record leaves free are 0.
inline tIndexSlot encode(const tNormalIndexTable& record)
{
    const tNormalIndexTable stored = fileOrder(record);
    tIndexSlot slot{};
    memcpy(slot.data(), &stored, sizeof stored);
    return slot;
}

inline tIndexSlot encode(const tEncodedIndexTable& record)
{
    const tEncodedIndexTable stored = fileOrder(record);
    tIndexSlot slot;
    memcpy(slot.data(), &stored, sizeof stored);
    return slot;
}

inline tNormalIndexTable decodeNormal(const tIndexSlot& slot)
{
    tNormalIndexTable stored;
    memcpy(&stored, slot.data(), sizeof stored);
    return fileOrder(stored);
}

inline tEncodedIndexTable decodeEncoded(const tIndexSlot& slot)
{
    tEncodedIndexTable stored;
    memcpy(&stored, slot.data(), sizeof stored);
    return fileOrder(stored);
}

// Both kinds keep the time and the length in the same places.
inline uint64_t timeOf(const tIndexSlot& slot)
{
    uint64_t stored;
    memcpy(&stored, slot.data(), sizeof stored);
    return fileOrder(stored);
}

// In bytes or, of a Huffman record, in bits.
inline uint32_t lengthOf(const tIndexSlot& slot)
{
    uint32_t stored;
    memcpy(&stored, slot.data() + offsetof(tNormalIndexTable, len), sizeof stored);
    return fileOrder(stored);
}
}  // namespace storage

#endif
