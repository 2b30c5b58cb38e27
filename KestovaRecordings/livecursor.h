// tLiveCursor: the records of a recording that is being made, as they come, from file to file to its end.
#ifndef KESTOVA_RECORDINGS_LIVECURSOR_H
#define KESTOVA_RECORDINGS_LIVECURSOR_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "UdpSocket/kestovaapi.h"

namespace recordings
{
struct tLiveRecord
{
    std::uint64_t timeMs = 0;
    int fineTime = -1;            // microseconds within the millisecond, 0 to 999; -1 where they are not known
    const char* bytes = nullptr;  // valid until the next call
    std::size_t len = 0;
};

// Gives every record once, in the order of recording, and goes on into the files that follow in the folder, whether the
// recorder has compressed them meanwhile or not. The recording is over when nothing has held the lock of its last file
// for a second: its recorder has ended or was killed. So it is at once on a file system without locks. One thread at a
// time.
class KESTOVA_API tLiveCursor
{
public:
    // Follows the file of `files`, which are in order of their names, that is being recorded; if none is, the last one
    // of the last folder, whose recorder may be between two files. Throws tFailure if files of several folders are
    // being recorded.
    tLiveCursor(const std::vector<std::string>& files, const std::string& suffix);
    ~tLiveCursor();
    tLiveCursor(const tLiveCursor&) = delete;
    tLiveCursor& operator=(const tLiveCursor&) = delete;

    const std::string& file() const;  // that the last record was in; first the one that is followed
    // Begins, or begins again, in the followed file with the record of index slot `slot`.
    void begin(std::size_t slot);
    bool next(tLiveRecord& record);  // returns false while there is none
    bool over();                     // after next() returned false: no record will come
    std::uint64_t damaged() const;   // records that could not be read

private:
    class tPrivate;
    std::unique_ptr<tPrivate> d;
};
}  // namespace recordings

#endif
