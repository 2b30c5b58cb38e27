// verifyRecordings: reads data files to the last byte and reports what is wrong with them.
//
// Without a sheet  index head and index against the file's size, places of the segments, times, marks and lengths of
//                  packages, codes of compressed files.
// With a sheet     also the checksums of heads, index, segments and fine times, and the digests of the streams: any
//                  flipped bit of index or segments is found and placed within the second, in a plain file mostly to
//                  the bit.
// Raw segments, which are no packages, are sound. Files are only read.
#ifndef KESTOVA_RECORDINGS_VERIFY_H
#define KESTOVA_RECORDINGS_VERIFY_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "KestovaRecordings/archive.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
enum class eFileState
{
    eSound,
    eRecording,   // its writer lives; never damaged
    eUnfinished,  // its writer ended without its index head; whole otherwise
    eDamaged
};
KESTOVA_API const char* stateName(eFileState state);  // "sound", "recording", "unfinished", "damaged"

struct tFinding
{
    // "magic", "head", "index_head", "code_head", "size", "index", "place", "overlap", "package", "codes", "payload",
    // "digest", "unreadable"; and what damages no file: "time", "sequence", "tail", "fine_times", "sheet".
    std::string kind;
    bool damage = true;
    std::optional<std::uint64_t> record;  // its number, or that of the first of several that follow each other
    std::optional<std::uint64_t> offset;  // in the file
    std::optional<std::uint64_t> timeMs;  // recorded time
    std::string detail;                   // one sentence for the user
};

struct tVerifiedFile
{
    std::string path;
    eFileState state = eFileState::eSound;
    std::vector<tFinding> findings;              // by record, those of the file as a whole first; 1,000 at most
    std::uint64_t moreFindings = 0;              // beyond these
    std::uint64_t lost = 0;                      // what was not recorded, as its sheet counts it; 0 without a sheet
    std::optional<std::uint64_t> missingOnWire;  // as its sheet counts it
    std::uint64_t records = 0;
    std::uint64_t size = 0;
    bool hasSheet = false;  // and it is the file's own
};

struct tVerification
{
    std::vector<tVerifiedFile> files;
    std::vector<tLeftOut> leftOut;  // paths without data files, and files that cannot be read or are none
    std::size_t sound = 0, recording = 0, unfinished = 0, damaged = 0;
    bool complete = false;  // false: cancelled before the last byte; the file in hand is not listed
};

struct tVerifyOptions
{
    std::string suffix = ".data";
    bool quick = false;    // all but the segments
    unsigned threads = 0;  // 0: one a processor, 16 at most
};

// The present file, counted from 1, and how much of its segments has been read.
struct tVerifyProgress
{
    std::size_t file, files;
    std::uint64_t bytes, ofBytes;
};

// Verifies the files below the paths one after the other, each once, its segments in several threads. Calls `goOn` on
// the calling thread some hundred times a second; false cancels. Memory beside the file's index and sheet: some 3 MiB a
// thread for segments up to 1 MiB. Throws tFailure if no file can be examined. Any thread.
KESTOVA_API tVerification verifyRecordings(const std::vector<std::string>& paths, const tVerifyOptions& options,
                                           const std::function<bool(const tVerifyProgress&)>& goOn);
}  // namespace recordings

#endif
