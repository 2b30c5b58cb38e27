// countRecordings: counts what is in the data files below a path.
#ifndef KESTOVA_RECORDINGS_RECORDINGCOUNTS_H
#define KESTOVA_RECORDINGS_RECORDINGCOUNTS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "KestovaRecordings/activity.h"
#include "KestovaRecordings/archive.h"
#include "KestovaRecordings/missingmessages.h"
#include "KestovaRecordings/sheet.h"
#include "KestovaRecordings/streamhistory.h"
#include "KestovaStorage/filehead.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
struct tFileCounts
{
    std::string path;
    storage::tFileHeadSymbol kind = storage::cDataFileHead;
    bool readable = true;  // its segments can be read
    bool finished = false;
    std::uint64_t size = 0, diskSize = 0;  // the file's length, and what it takes on the disk
    std::uint64_t records = 0, bytes = 0, damaged = 0;
    std::uint64_t firstMs = 0, lastMs = 0;
    tStreamHistories streams;
    std::map<tStreamKey, tPerSecond> perSecond;  // where it is wanted
    bool bySheet = false;                        // its sheet was read in place of its records
    tMissingCounts missingOnWire;                // by the sheet or, if layouts are given, by the messages
    std::optional<tSheet> sheet;                 // without its streams and checksums
    std::string sheetIgnored;                    // why a sheet that is there counts for nothing
};

struct tTotalCounts
{
    std::uint64_t size = 0, diskSize = 0, records = 0, bytes = 0, damaged = 0;
    std::uint64_t firstMs = 0, lastMs = 0;
    std::vector<tGap> silences;  // of everything, longer than cSilenceMs, in order of time
    tStreamHistories streams;
    std::map<tStreamKey, tPerSecond> perSecond;
    tSheetLosses losses;           // of all sheets
    tMissingCounts missingOnWire;  // of all files
};

struct tRecordingCounts
{
    std::vector<tFileCounts> files;
    std::vector<tLeftOut> leftOut;  // paths without data files, and files that are none
    tTotalCounts total;
    bool complete = false;  // false: cancelled before the last record
};

struct tCountOptions
{
    std::string suffix = ".data";
    std::uint64_t gapMs = 2000;  // silences of this length or more are gaps
    bool withDigest = false;
    bool perSecond = false;
    // Of spokes, in place of those of the sheets: the messages are read for what is missing between them.
    std::vector<utils::tSpokeLayout> layouts = {};
};

// The present record, counted from 0, of the present file, counted from 1.
struct tCountProgress
{
    std::size_t file, files;
    std::size_t record, records;
};

// Counts the files below the paths, each once. A finished file with a sheet is counted from that, unless `gapMs` is
// less than cSheetGapMs, digests of several files are wanted, or layouts are given; the others are read, large ones on
// several threads, so that damage shows. Of a recording that is being written it counts what is in its files at that
// moment; a file that is compressed or deleted meanwhile is counted in its new form, or left out. Calls `goOn`, on the
// calling thread, every 1,024 records that it counts; false cancels. Throws tFailure if none of them is a data file.
// Any thread.
KESTOVA_API tRecordingCounts countRecordings(const std::vector<std::string>& paths, const tCountOptions& options,
                                             const std::function<bool(const tCountProgress&)>& goOn);
}  // namespace recordings

#endif
