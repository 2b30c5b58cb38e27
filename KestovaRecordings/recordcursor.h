// tRecordCursor: the records of several data files in order of time, each of them read once.
#ifndef KESTOVA_RECORDINGS_RECORDCURSOR_H
#define KESTOVA_RECORDINGS_RECORDCURSOR_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "KestovaRecordings/archive.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
struct tRecordingRecord
{
    std::uint64_t timeMs;
    int fineTime;            // microseconds within the millisecond, 0 to 999; -1 where they are not known
    std::string_view bytes;  // valid until the next call
};

// Keeps a file open from its first record to its last, so that of files that follow one another one is open. Records of
// equal times come in the order of their files, then as they were recorded. One thread at a time.
class KESTOVA_API tRecordCursor
{
public:
    // Opens every file once, for the time of its first record. Files that cannot be read, or of which no record can,
    // are left out; one that a recorder has compressed meanwhile is read in that form. Names of plain files end in
    // `suffix`.
    tRecordCursor(const std::vector<std::string>& files, const std::string& suffix);
    ~tRecordCursor();
    tRecordCursor(const tRecordCursor&) = delete;
    tRecordCursor& operator=(const tRecordCursor&) = delete;

    // Passes over the records before a time without reading them. Before the first next().
    void startAt(std::uint64_t timeMs);
    // Records of that time, and later ones, are not there.
    void endAt(std::uint64_t timeMs);
    bool next(tRecordingRecord& record);  // returns false at the end; passes over records that cannot be read

    // Sets the next records, up to `count` (1 or more), which are valid until the next call. Returns how many: fewer
    // than are left where they do not lie together in memory, 0 at the end.
    std::size_t nextRun(tRecordingRecord* records, std::size_t count);

    std::size_t files() const;                     // that are not left out
    const std::vector<tLeftOut>& leftOut() const;  // none of them is `asked`
    std::uint64_t records() const;                 // in all the files
    std::uint64_t passed() const;                  // so far, those included that could not be read
    std::uint64_t damaged() const;                 // so far: index records left out, and records that could not be read

private:
    class tPrivate;
    std::unique_ptr<tPrivate> d;
};
}  // namespace recordings

#endif
