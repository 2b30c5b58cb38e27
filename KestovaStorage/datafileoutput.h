// Writes new data files from records that exist already, and finishes one whose recorder died.
#ifndef KESTOVA_DATAFILEOUTPUT_H
#define KESTOVA_DATAFILEOUTPUT_H

#include <stddef.h>
#include <stdint.h>
#include <string>

#include "KestovaStorage/datafile.h"
#include "KestovaStorage/finetimesformat.h"
#include "UdpSocket/kestovaapi.h"

namespace storage
{
// What fineTime() of a record and the outputs below take for a time without microseconds.
constexpr int cUnknownFineTime = -1;

class tDataFileOutputPrivate;

// A plain data file as a recorder writes it, with the times given. While it is written its lock is held, as a
// recorder's; until finish() it is an unfinished file, which readers can read.
//
// Threads  one at a time.
// Errors   operations return false, or less than asked for, and error() returns the reason of the first failure; what
//          was written before it stays.
class KESTOVA_API tDataFileOutput
{
public:
    tDataFileOutput();
    // Does not finish the file.
    ~tDataFileOutput();
    tDataFileOutput(const tDataFileOutput&) = delete;
    tDataFileOutput& operator=(const tDataFileOutput&) = delete;

    // Creates the file, which must not exist. With `fineTimes` the fine times of all records are written beside it.
    bool create(const std::string& path, bool fineTimes);
    const tFileId& id() const;  // random; the fine times have it, and its sheet is to have it

    // Whether the file takes no further record: its last segment started beyond 1,048,576,000 bytes or the index is
    // full.
    bool isFull() const;
    size_t recordCount() const;
    uint64_t position() const;  // of the next segment in the file

    // Appends a record of `len` bytes, 1 at least. `timeMs` is above 0 and below 2^48; `us` is 0 to 999 or
    // cUnknownFineTime.
    bool append(uint64_t timeMs, int us, const char* bytes, uint32_t len);
    // Appends `count` records from number `first` on of an open file, with their fine times; `shiftMs` is added to
    // their times. Bytes of a plain file that follow each other are copied inside the kernel. Returns the number of
    // records appended: fewer if the file is full then, or on an error.
    size_t copy(tDataFile& from, size_t first, size_t count, int64_t shiftMs);

    // Writes what is held back to the file; append() and copy() do so by themselves now and then.
    bool flush();
    // Writes the rest and the index head, and syncs file and fine times to the disk. The folder is not synced.
    bool finish();
    const std::string& error() const;

    // Finishes an unfinished plain file in place by the 8 bytes of its index head, and syncs it. Returns false, sets
    // `error`, unless null, to file and reason, and changes nothing if it is being recorded, is finished or compressed,
    // has damaged records, or holds no record but bytes.
    static bool finishInPlace(const std::string& path, std::string* error);

private:
    tDataFileOutputPrivate* d;
};
}  // namespace storage

#endif
