// Reads the records of one data file as they come, also while it is being recorded.
#ifndef KESTOVA_DATAFILETAIL_H
#define KESTOVA_DATAFILETAIL_H

#include <stddef.h>
#include <stdint.h>
#include <string>

#include "UdpSocket/kestovaapi.h"

namespace storage
{
struct tTailRecord
{
    uint64_t timeMs;
    int us;  // microseconds within timeMs, 0 to 999; -1 where they are not known
    const char* bytes;
    size_t len;
};

class tDataFileTailPrivate;

// A file of any form, finished or not, record by record in the order of its index. An open file stays readable when its
// name is removed, as by a recorder that has compressed it. Looking for a record that has not come reads a few hundred
// bytes. One thread at a time.
class KESTOVA_API tDataFileTail
{
public:
    tDataFileTail();
    ~tDataFileTail();
    tDataFileTail(const tDataFileTail&) = delete;
    tDataFileTail& operator=(const tDataFileTail&) = delete;

    // Opens the file; the next record is that in index slot number `slot`. Returns false if it cannot be read or is no
    // data file, and sets `error`, unless null, to the file's name and the reason; what was open before stays open.
    bool open(const std::string& path, size_t slot, std::string* error = nullptr);
    void seek(size_t slot);
    const std::string& path() const;  // empty while nothing is open

    // Sets the next record, valid until the object is used again. Returns false while there is none. Of a finished file
    // damaged records are passed over; one that is being recorded ends before what is not whole yet.
    bool next(tTailRecord& record);
    bool finished();         // the writer has written the index head: what next() returns from now on is the rest
    size_t damaged() const;  // records that were passed over

private:
    tDataFileTailPrivate* d;
};
}  // namespace storage

#endif
