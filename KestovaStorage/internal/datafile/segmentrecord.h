// tSegmentRecord: an index record of a plain or a Huffman file, in one form: when its segment was recorded and which
// bits of the file hold it. tSegmentReader turns them into bytes.
#ifndef KESTOVA_STORAGE_DATAFILE_SEGMENTRECORD_H
#define KESTOVA_STORAGE_DATAFILE_SEGMENTRECORD_H

#include <cstdint>

#include "KestovaStorage/datafileformat.h"
#include "KestovaStorage/filehead.h"

namespace storage
{
struct tSegmentRecord
{
    std::uint64_t time;         // ms since the Unix epoch
    std::uint64_t firstByte;    // offset of the byte that holds the first bit
    std::uint64_t bits;         // 8 a byte; in a Huffman file those of the codes
    std::uint8_t firstBit = 0;  // place of the first bit in its byte; other than 0 in a Huffman file only

    std::uint64_t bytes() const { return (firstBit + bits + 7) / 8; }  // that hold the bits
    std::uint64_t end() const { return firstByte + bytes(); }
};

inline tSegmentRecord recordOf(tFileHeadSymbol kind, const tIndexSlot& slot)
{
    if (kind == cDataFileHead)
    {
        const tNormalIndexTable plain = decodeNormal(slot);
        return {plain.tim, plain.pos, std::uint64_t{plain.len} * 8};
    }
    const tEncodedIndexTable encoded = decodeEncoded(slot);
    return {encoded.tim, encoded.firstBytePos, encoded.huffmanBits, encoded.firstBitPos};
}

// The record of a segment that `kind` can hold: of less than 2^32 bytes, or bits of code.
inline tIndexSlot slotOf(tFileHeadSymbol kind, const tSegmentRecord& record)
{
    if (kind == cDataFileHead)
        return encode(tNormalIndexTable{record.time, record.firstByte, static_cast<std::uint32_t>(record.bits / 8)});
    return encode(
        tEncodedIndexTable{record.time, record.firstByte, static_cast<std::uint32_t>(record.bits), record.firstBit});
}
}  // namespace storage

#endif
