// Reads one data file record by record, without playing it.
#ifndef KESTOVA_DATAFILE_H
#define KESTOVA_DATAFILE_H

#include <stddef.h>
#include <stdint.h>
#include <string>

#include "KestovaStorage/datastorageio.h"
#include "KestovaStorage/finetimesformat.h"
#include "UdpSocket/kestovaapi.h"

namespace storage
{
// One segment of a data file, as its index describes it.
struct tDataFileRecord
{
    uint64_t timeMs;  // recorded time stamp, ms since the Unix epoch
    uint64_t pos;     // offset in bytes of the segment's first byte in the file
    uint32_t len;     // length in bytes; in a compressed file, of what its code takes
};

// A segment that readRun() has read.
struct tDataFileSegment
{
    uint64_t timeMs;
    const char* bytes;  // valid until the object is used again
    size_t len;
};

// The name that users see for a form of data file: "plain", "huffman"; "unknown" for a number that no form has.
KESTOVA_API const char* fileFormName(tFileHeadSymbol form);

class tDataFilePrivate;

// Opens a file for reading. One that is still being written shows its contents at that moment. One thread at a time. No
// damaged file makes it read outside the file, or allocate more than eight times the file's size.
class KESTOVA_API tDataFile
{
public:
    tDataFile();
    ~tDataFile();
    tDataFile(const tDataFile&) = delete;
    tDataFile& operator=(const tDataFile&) = delete;

    // Reads the file's heads and index. Returns false if it cannot be read or is no data file, and sets `error`, unless
    // null, to the file's name and the reason.
    bool open(const std::string& path, std::string* error = nullptr);

    const std::string& path() const;
    tFileHeadSymbol kind() const;   // the file's form
    bool isCompressed() const;      // its segments are codes, which read() decodes
    bool finished() const;          // its writer wrote the index head; false while recording and after a crash
    uint64_t size() const;          // of the file, in bytes
    uint64_t payloadBytes() const;  // sum of the lengths of the records; in a compressed file, of their codes

    size_t recordCount() const;   // records that are whole, in the order in which they were recorded
    size_t damagedCount() const;  // index records left out: they point outside the file or carry no possible time
    tDataFileRecord record(size_t i) const;  // i below recordCount()
    // Returns the microseconds within the record's millisecond, 0 to 999; -1 where they are not known.
    int fineTime(size_t i) const;
    tFineTimesState fineTimes() const;    // looks at the file of fine times the first time
    bool fineTimesId(tFileId& id) const;  // of eFineTimesOurs alone: sets the identity in it

    // Replaces `bytes` by the segment's bytes. Returns false if the file does not hold them all (it was cut since it
    // was opened), a read fails, or the codes of a compressed file cannot be used.
    bool read(size_t i, std::string& bytes);
    // Returns the segment's bytes where they were read and sets `len`; valid until the object is used again. Null where
    // read() returns false.
    const char* view(size_t i, size_t& len);
    // Sets `segments` to those of up to `count` records from the first one on and returns how many: as many as lie
    // behind one another in the bytes that one read brings. 0 for a long segment, for a compressed one, and where
    // read() returns false.
    size_t readRun(size_t first, size_t count, tDataFileSegment* segments);
    // Copies `len` bytes from `offset` on. Of a long segment that is no code it reads these alone. Returns false if the
    // segment does not hold them, and where read() does.
    bool readPart(size_t i, size_t offset, size_t len, char* to);

private:
    friend class tDataFileOutputPrivate;  // copies bytes inside the kernel
    tDataFilePrivate* d;
};
}  // namespace storage

#endif
