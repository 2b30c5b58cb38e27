// The layout of a fine times file, NAME.fine beside the data file NAME.data or NAME.tar.data: the microseconds of each
// record's time.
//
//            0    64  tFineTimesHead
//           64   2 n  a record, in the order of the index: microseconds within its millisecond, 0 to 999, or
//                     cNoFineTime
//
// All numbers are little-endian. A file may hold fewer records than the index, whose others have no fine time. It
// belongs to a data file if the time and the position of the first record are the data file's, with one bit different
// at most in all: a flipped bit makes no file foreign. docs/formats.md shows the same as a table.
#ifndef KESTOVA_FINETIMESFORMAT_H
#define KESTOVA_FINETIMESFORMAT_H

#include <stddef.h>
#include <stdint.h>

namespace storage
{
// The random identity of a recorded file, which its fine times and its sheet have.
struct tFileId
{
    unsigned char bytes[16];
};

// What lies beside a data file as its fine times.
enum tFineTimesState : int32_t
{
    eFineTimesNone = 0,  // nothing, or it cannot be read
    eFineTimesOurs = 1,
    eFineTimesForeign = 2,  // of another data file, or of an unknown version: not used
    eFineTimesDamaged = 3   // no regular file, or no fine times: not used
};

#pragma pack(push, 1)
struct tFineTimesHead
{
    char magic[8];  // cFineTimesMagic, without its final zero
    uint32_t version;
    uint32_t zero;
    tFileId id;
    uint64_t firstTimeMs;  // of the data file's first record
    uint64_t firstPos;
    unsigned char rest[16];  // zero
};
#pragma pack(pop)

constexpr char cFineTimesMagic[] = "KestovaT";
constexpr uint32_t cFineTimesVersion = 1;
constexpr uint64_t cFineTimesPos = sizeof(tFineTimesHead);
constexpr size_t cFineTimeSize = 2;
constexpr uint16_t cNoFineTime = 0xFFFF;  // not known
constexpr uint16_t cFineTimeLimit = 1000;

static_assert(sizeof(tFineTimesHead) == 64 && offsetof(tFineTimesHead, id) == 16 &&
                  offsetof(tFineTimesHead, firstTimeMs) == 32 && offsetof(tFineTimesHead, firstPos) == 40,
              "the head has 64 bytes");
}  // namespace storage

#endif
