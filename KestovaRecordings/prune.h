// pruneRoot: deletes the oldest recordings below a storage root until limits hold.
//
// Shapes   a recording here is a folder Data_NNNNNN_* in the root itself, no link. Its age is that of its last record:
//          names and times of files mean nothing. Sizes are what files take on the disk.
// Never    deletes what is kept, being played or being recorded, and nothing but data files and what goes with them: a
//          folder that holds anything else stays, with that. A recording without records has no age and stays.
// Order    a recording vanishes by one rename, to a hidden name; then its files are removed. What is left when the
//          process dies meanwhile is removed by the next call for that root.
// Threads  any; several processes may prune a root at once.
#ifndef KESTOVA_RECORDINGS_PRUNE_H
#define KESTOVA_RECORDINGS_PRUNE_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "KestovaRecordings/archive.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
struct tPruneLimits
{
    std::optional<std::uint64_t> maxAgeMs;   // since the last record
    std::optional<std::uint64_t> maxBytes;   // that all recordings below the root may take
    std::optional<std::uint64_t> freeBytes;  // that are to be free on the root's disk

    bool any() const { return maxAgeMs || maxBytes || freeBytes; }
};

enum class ePruneCause
{
    eAge,
    eSize,
    eFree
};
KESTOVA_API std::string causeName(ePruneCause cause);  // "max-age", "max-size", "min-free"

struct tPruned
{
    std::string path;  // of a recording's folder, or of a data file of the own recording
    std::uint64_t firstMs = 0, lastMs = 0;
    std::uint64_t bytes = 0;
    ePruneCause cause = ePruneCause::eAge;
};

struct tPruneOptions
{
    bool dryRun = false;  // finds out what would be deleted
    std::string suffix = ".data";
    // The recording under way of the caller, and its file in hand: of this one, finished files are deleted.
    std::string ownFolder, inHand;
};

struct tPruneResult
{
    std::vector<tPruned> deleted;
    std::vector<tLeftOut> passedOver;  // old enough, and not deleted: kept, being played, being recorded
    std::vector<tLeftOut> failed;      // could not be deleted
    std::uint64_t recordings = 0;      // that are left
    std::uint64_t bytes = 0;           // that they take
    std::uint64_t freeBytes = 0;       // on the root's disk, 0 if that is not known
    bool reached = true;               // the limits hold
};

// Calls `deleted` for each deletion. Throws tFailure if the root cannot be searched.
KESTOVA_API tPruneResult pruneRoot(const std::string& root, const tPruneLimits& limits, const tPruneOptions& options,
                                   const std::function<void(const tPruned&)>& deleted);
}  // namespace recordings

#endif
