// glanceAt: what a few bytes of a data file tell: how it ended, its first and its last record. Two reads for a finished
// file, some twenty for one that is not.
//
// Errors   nothing that is read is trusted: what cannot be makes the file a damaged one.
// Threads  any.
#ifndef KESTOVA_RECORDINGS_INTERNAL_FILEGLANCE_H
#define KESTOVA_RECORDINGS_INTERNAL_FILEGLANCE_H

#include <cstdint>
#include <optional>
#include <string>

#include "KestovaRecordings/recordinglist.h"
#include "KestovaStorage/datafileformat.h"

namespace recordings
{
struct tFileGlance
{
    eRecordingState state = eRecordingState::eFinished;
    storage::tFileHeadSymbol form = storage::cDataFileHead;
    std::uint64_t size = 0, sizeOnDisk = 0;
    std::uint64_t records = 0;                   // that the index has, whole or not
    std::optional<storage::tIndexSlot> first{};  // where there are records
    std::uint64_t firstMs = 0, lastMs = 0;       // of the first and the last record, the earlier one first
};

// `name` is relative to the open folder; AT_FDCWD takes a path. Returns nothing for what is no data file and sets
// `why`.
std::optional<tFileGlance> glanceAt(int folder, const char* name, std::string& why);
}  // namespace recordings

#endif
