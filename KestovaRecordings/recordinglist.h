// listRecordings: the recordings below storage roots, one entry each, without reading them.
//
// Shapes   a recording is a folder that has data files in it, at any depth below the root; hidden folders are none. A
//          data file that is named itself is a recording of its own. Of each file the heads and the first and the last
//          index record are read, and the first 4 KiB of its sheet.
// Threads  any; starts some of its own while it looks at many folders.
#ifndef KESTOVA_RECORDINGS_RECORDINGLIST_H
#define KESTOVA_RECORDINGS_RECORDINGLIST_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "KestovaRecordings/archive.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
// Of a recording: the last of these that holds for one of its files.
enum class eRecordingState
{
    eFinished,
    eUnfinished,  // its recorder died
    eRecording,   // its recorder lives
    eDamaged      // an index record lies outside its file, or has no possible time
};
KESTOVA_API std::string stateName(eRecordingState state);  // "finished", "unfinished", "recording", "damaged"

// A data file, or all files of a recording.
struct tListedFile
{
    std::string path;
    std::uint64_t firstMs = 0, lastMs = 0;  // the earliest and the latest that are known; 0 without records
    std::uint64_t records = 0;
    std::uint64_t sizeBytes = 0;  // on the disk, with its companions
    eRecordingState state = eRecordingState::eFinished;
    // As far as sheets say.
    std::uint64_t lost = 0, notes = 0;
    bool kept = false;
};

struct tListedRecording : tListedFile
{
    std::string name;          // of the folder
    std::uint64_t files = 0;   // data files
    std::uint64_t sheets = 0;  // of them, those with a sheet
    std::string radar;         // its serial number, of the sheets or of the names of the files; empty for none
};

struct tListOptions
{
    std::string suffix = ".data";
    std::uint64_t sinceMs = 0, untilMs = UINT64_MAX;  // a recording that overlaps this time
    std::string radar;                                // a serial number; empty for any
    bool keptOnly = false;
};

struct tRecordingList
{
    std::vector<tListedRecording> recordings;  // the newest first: by lastMs
    std::vector<tLeftOut> leftOut;             // roots that cannot be searched, and files that are no data files
    std::vector<tLeftOut> foreignSheets;       // sheets that are foreign or damaged, and ignored
};

// Every recording once, however often it is below the roots. Throws nothing but std::bad_alloc.
KESTOVA_API tRecordingList listRecordings(const std::vector<std::string>& roots, const tListOptions& options = {});

// Returns the data files that lie in a folder itself, in order of their names.
KESTOVA_API std::vector<tListedFile> listDataFiles(const std::string& folder, const std::string& suffix = ".data");
}  // namespace recordings

#endif
