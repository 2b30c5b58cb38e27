// examineFile: one data file with its companions, examined as verifyRecordings() reports it, and what recovering needs
// of it.
#ifndef KESTOVA_RECORDINGS_FILEEXAMINATION_H
#define KESTOVA_RECORDINGS_FILEEXAMINATION_H

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "KestovaRecordings/internal/indexexamination.h"
#include "KestovaRecordings/sheet.h"
#include "KestovaRecordings/verify.h"
#include "KestovaStorage/rawdatafile.h"

namespace recordings
{
struct tExaminedFile
{
    tVerifiedFile verified;
    tFoundSheet sheet;
    tExaminedIndex index;
    std::unique_ptr<storage::tRawDataFile> file;
    bool canBeFinished = false;  // it is unfinished, and nothing but its index head is wrong
};

struct tExamineOptions
{
    bool quick = false;
    unsigned threads = 1;
};

// `goOn` receives the bytes of segments that have been read, and how many there are; false cancels: returns nothing
// then. Throws tFailure if the file cannot be read or is no data file.
std::optional<tExaminedFile> examineFile(const std::string& path, const tExamineOptions& options,
                                         const std::function<bool(std::uint64_t, std::uint64_t)>& goOn);

// Returns the number of threads for tVerifyOptions::threads.
unsigned threadsFor(unsigned wanted);
}  // namespace recordings

#endif
