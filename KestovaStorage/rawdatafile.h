// Reads a data file as it lies on the disk, for those who check or repair one. tDataFile leaves out what is damaged;
// these leave out nothing.
#ifndef KESTOVA_RAWDATAFILE_H
#define KESTOVA_RAWDATAFILE_H

#include <stddef.h>
#include <stdint.h>
#include <string>

#include "KestovaStorage/datafileformat.h"
#include "UdpSocket/kestovaapi.h"

namespace storage
{
// An index record of any form: which bits of the file hold a segment. Nothing of it has been checked.
struct tRawRecord
{
    uint64_t timeMs;
    uint64_t firstByte;  // offset of the byte that holds the first bit
    uint64_t bits;       // 8 a byte; in a compressed file those of the codes
    uint32_t firstBit;   // place of the first bit in its byte, 0 to 255; 0 in a plain file

    uint64_t bytes() const { return (firstBit + bits + 7) / 8; }  // that hold the bits
};

struct tSegmentView
{
    const char* bytes;
    size_t len;
};

class tRawDataFilePrivate;
class tRawSegmentsPrivate;

// One file. Any thread once it is open.
class KESTOVA_API tRawDataFile
{
public:
    tRawDataFile();
    ~tRawDataFile();
    tRawDataFile(const tRawDataFile&) = delete;
    tRawDataFile& operator=(const tRawDataFile&) = delete;

    // Reads the beginning of the file. A file with a wrong magic is taken for one of the form `assumed`, if that is the
    // number of a form. Returns false if it cannot be read or is no data file, and sets `error`, unless null, to the
    // file's name and the reason.
    bool open(const std::string& path, uint32_t assumed, std::string* error);

    tFileHeadSymbol form() const;
    bool isCompressed() const;      // its segments are codes
    uint64_t countedBytes() const;  // of all segments of a compressed file, as its head has them; 0 otherwise
    uint64_t size() const;          // of the file at this moment

    // Copies `len` bytes from `pos` on; returns how many of them the file holds, fewer also after an error.
    size_t read(uint64_t pos, size_t len, void* to) const;
    // From now on reads as if this bit of the byte at `pos` were the other one: for a bit whose damage is known. Not
    // while another thread uses the file.
    void correctBit(uint64_t pos, unsigned bit);
    tRawRecord record(const tIndexSlot& slot) const
    {
        const tEncodedIndexTable stored = decodeEncoded(slot);
        return tRawRecord{stored.tim, stored.firstBytePos, uint64_t(stored.huffmanBits) << m_lengthShift,
                          uint32_t(stored.firstBitPos & m_firstBits)};
    }

private:
    friend class tRawSegmentsPrivate;

    unsigned m_lengthShift;
    uint8_t m_firstBits;
    tRawDataFilePrivate* d;
};

// Reads the segments of an open file, which outlives it. One thread at a time; several objects may read one file.
class KESTOVA_API tRawSegments
{
public:
    explicit tRawSegments(const tRawDataFile& file);
    ~tRawSegments();
    tRawSegments(const tRawSegments&) = delete;
    tRawSegments& operator=(const tRawSegments&) = delete;

    // Sets `segments` to those of `count` records, which lie in the order of the file between the first one's beginning
    // and the last one's end: that stretch is read at once. Valid until the next call. Returns false if the file does
    // not hold one of them, the records lie otherwise, or the codes of a compressed file cannot be used.
    bool read(const tRawRecord* records, size_t count, tSegmentView* segments);

private:
    tRawSegmentsPrivate* d;
};
}  // namespace storage

#endif
