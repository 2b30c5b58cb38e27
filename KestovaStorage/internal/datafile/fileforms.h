// The forms that a data file can have, and what distinguishes them. Whoever handles data files asks the file's form;
// nobody compares its number.
//
// Another form is a source file of its own with its tFileForm (huffmanform.cpp is one), and its line in cFileForms.
#ifndef KESTOVA_STORAGE_DATAFILE_FILEFORMS_H
#define KESTOVA_STORAGE_DATAFILE_FILEFORMS_H

#include <cstdint>
#include <memory>

#include "KestovaStorage/datafileformat.h"
#include "KestovaStorage/filehead.h"
#include "KestovaStorage/internal/codec/segmentcodec.h"
#include "KestovaStorage/internal/datafile/segmentrecord.h"

namespace storage
{
class tDataFileReader;

// Index records have their fields in the same places in every form: time, first byte, length, first bit. What the
// length counts differs. Inline and without a branch: these run for every record of every file.
struct tFileForm
{
    tFileHeadSymbol number;  // the magic
    const char* name;        // as users see it
    unsigned lengthShift;    // a record's length counts 2^lengthShift bits: 3 of bytes, 0 of bits
    std::uint8_t firstBits;  // bits of a record's last byte that have the place of its first bit; 0 for whole bytes
    bool emptyRecordEnds;    // a record without length was cut by the death of its writer: it ends an unfinished index
    // Both null if the segments are stored as they are.
    std::unique_ptr<iSegmentEncoder> (*newEncoder)();
    // Returns null if the file's head cannot be read.
    std::unique_ptr<iSegmentDecoder> (*newDecoder)(tDataFileReader& file);

    bool isCompressed() const { return newDecoder != nullptr; }
    tSegmentRecord record(const tIndexSlot& slot) const
    {
        const tEncodedIndexTable stored = decodeEncoded(slot);
        return {stored.tim, stored.firstBytePos, std::uint64_t{stored.huffmanBits} << lengthShift,
                static_cast<std::uint8_t>(stored.firstBitPos & firstBits)};
    }
    // The segment has fewer than 2^32 bytes or, if the length counts bits, bits.
    tIndexSlot slot(const tSegmentRecord& record) const
    {
        return encode(tEncodedIndexTable{record.time, record.firstByte,
                                         static_cast<std::uint32_t>(record.bits >> lengthShift), record.firstBit});
    }
};

extern const tFileForm cPlainForm, cHuffmanForm;

inline constexpr const tFileForm* cFileForms[] = {&cPlainForm, &cHuffmanForm};
inline constexpr const tFileForm& cCompressedForm = cHuffmanForm;  // that compressing writes

// Returns null for a number that no form has.
const tFileForm* formOf(std::uint32_t number);
}  // namespace storage

#endif
