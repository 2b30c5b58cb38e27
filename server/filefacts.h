// What timelines and pages need to know of a data file, from its sheet; from its records where it has none.
#ifndef KESTOVA_SERVER_FILEFACTS_H
#define KESTOVA_SERVER_FILEFACTS_H

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "KestovaRecordings/sheet.h"
#include "KestovaRecordings/streamcounts.h"

namespace server
{
// A stretch of time in which a stream had these rates, in messages a second.
struct tRatePiece
{
    std::uint64_t fromMs, toMs;  // the end excluded
    float min, mean, max;
};

struct tStreamFacts
{
    recordings::tStreamKey key;
    std::uint64_t messages = 0, bytes = 0, firstMs = 0, lastMs = 0;
    std::optional<std::uint64_t> missingOnWire;
    std::vector<recordings::tGap> gaps;
    std::vector<tRatePiece> pieces;  // eight at most
};

struct tFileFacts
{
    std::string path, name;
    std::uint64_t sizeBytes = 0, firstMs = 0, lastMs = 0;
    std::vector<tStreamFacts> streams;
    recordings::tSheetLosses losses;
    std::vector<recordings::tNote> notes;
    std::vector<recordings::tGap> silences;
    bool kept = false;
};
using tFileFactsPtr = std::shared_ptr<const tFileFacts>;

// Rates second by second.
using tFineRates = std::map<recordings::tStreamKey, std::vector<tRatePiece>>;

// Keeps what it has read for as long as the folders and files stay as they are. Any thread.
class tFactsCache
{
public:
    using tTime = std::chrono::steady_clock::time_point;

    struct tFolderFacts
    {
        std::vector<tFileFactsPtr> files;  // in order of their names
        bool isWhole = true;               // false: the time was over before all files were read
    };
    tFolderFacts of(const std::string& folder, tTime deadline = tTime::max());
    std::shared_ptr<const tFineRates> fine(const tFileFacts& file);

private:
    struct tFolder
    {
        std::int64_t changed = 0;  // of the folder, in ns
        tTime until;               // where that does not tell of changes
        std::vector<std::string> files;
        std::vector<std::uint64_t> sizes;
    };
    struct tKnown
    {
        std::int64_t changed = 0;  // of sheet and data file, in ns
        tFileFactsPtr facts;
    };
    struct tFine
    {
        std::string path;
        std::int64_t changed;
        std::shared_ptr<const tFineRates> rates;
    };
    tFolder folder(const std::string& path);
    tFileFactsPtr file(const std::string& path, std::uint64_t size);

    std::mutex m_mutex;
    std::map<std::string, tFolder> m_folders;  // guarded by m_mutex
    std::map<std::string, tKnown> m_files;     // guarded by m_mutex
    std::list<tFine> m_fine;                   // guarded by m_mutex; the last used first
};
}  // namespace server

#endif
