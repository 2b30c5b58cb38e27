// tSegmentRecord: an index record of a data file of any form: when its segment was recorded and which bits of the file
// hold it. tSegmentReader turns them into bytes.
#ifndef KESTOVA_STORAGE_DATAFILE_SEGMENTRECORD_H
#define KESTOVA_STORAGE_DATAFILE_SEGMENTRECORD_H

#include <cstdint>

namespace storage
{
struct tSegmentRecord
{
    std::uint64_t time;         // ms since the Unix epoch
    std::uint64_t firstByte;    // offset of the byte that holds the first bit
    std::uint64_t bits;         // 8 a byte; in a compressed file those of the codes
    std::uint8_t firstBit = 0;  // place of the first bit in its byte; other than 0 in a compressed file only

    std::uint64_t bytes() const { return (firstBit + bits + 7) / 8; }  // that hold the bits
    std::uint64_t end() const { return firstByte + bytes(); }
};
}  // namespace storage

#endif
