// countFile: counts what is in one data file, from its sheet if that will do, record by record otherwise.
//
// Threads  any; several at once, for different files.
#ifndef KESTOVA_RECORDINGS_INTERNAL_FILECOUNTER_H
#define KESTOVA_RECORDINGS_INTERNAL_FILECOUNTER_H

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "KestovaRecordings/activity.h"
#include "KestovaRecordings/recordingcounts.h"

namespace recordings
{
struct tCountedFile
{
    tFileCounts counts;
    tActivity activity;
};

struct tFileCountOptions
{
    std::uint64_t gapMs = 2000;
    bool withDigest = false;
    bool perSecond = false;
    bool fromSheet = true;  // if it has all that is wanted
    // The digests of several files one after the other, continued by this one; null for none.
    std::map<tStreamKey, tDigest>* digests = nullptr;
    tMissingMessages* wire = nullptr;  // the same for numbers of messages
};

// Calls `goOn` with the number of records counted and of all of them, every 1,024 records; false ends it. Returns
// nothing, and sets `error`, if it is no data file or cannot be read.
std::optional<tCountedFile> countFile(const std::string& path, const tFileCountOptions& options, std::string& error,
                                      const std::function<bool(std::size_t, std::size_t)>& goOn);
}  // namespace recordings

#endif
