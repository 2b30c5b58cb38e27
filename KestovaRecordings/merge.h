// mergeRecordings: several recordings as one, in order of time.
#ifndef KESTOVA_RECORDINGS_MERGE_H
#define KESTOVA_RECORDINGS_MERGE_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "KestovaRecordings/archive.h"
#include "KestovaRecordings/recordingoutput.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
struct tMergeOptions
{
    std::vector<std::string> paths;  // data files, and folders with data files
    std::string suffix = ".data";
    std::string folder;                // of the new recording; must not exist
    std::vector<std::int64_t> shifts;  // by path: added to the times of the files below it, in ms; 0 for those missing
    bool unique = false;
    std::uint64_t toleranceMs = 1000;
};

struct tMergeResult
{
    std::vector<tNewFile> files;
    std::vector<tLeftOut> leftOut;         // paths without data files, and files that are none
    std::uint64_t records = 0, bytes = 0;  // in the new recording
    std::uint64_t repeated = 0;            // records that another recording has, too: left out once
    std::uint64_t damaged = 0;             // records that could not be read and were left out
    bool complete = false;                 // false: cancelled, and nothing was made
};

// Takes all records, byte for byte, in order of their times, finer ones too; of equal times in the order of the paths,
// and then as they were recorded. Packages keep their own time whatever the shift.
//
// `unique` takes a message that two recordings have once: the same payload on the same group, at most `toleranceMs`
// apart. A message has one counterpart in each other recording, in order: where the other has several the nearest one,
// so that of a message that is repeated as many stay as the more complete recording has at that time. Files of one
// folder whose names differ in number and time alone are one recording.
//
// Calls `goOn` with the part that is done; false cancels. Throws tFailure, and makes nothing, if the folder exists,
// there is no record below the paths, or writing fails. Any thread.
KESTOVA_API tMergeResult mergeRecordings(const tMergeOptions& options,
                                         const std::function<bool(double fraction)>& goOn);
}  // namespace recordings

#endif
