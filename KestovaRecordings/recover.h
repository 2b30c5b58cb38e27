// recoverRecordings: finishes what a crash left, and saves the whole records of what is damaged.
//
// An unfinished file with which nothing else is wrong is finished in place, by the 8 bytes of its index head; its sheet
// then covers all of it. Of a damaged one every whole record goes into a new recording; the file itself stays as it is.
// Sound files stay as they are.
#ifndef KESTOVA_RECORDINGS_RECOVER_H
#define KESTOVA_RECORDINGS_RECOVER_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "KestovaRecordings/archive.h"
#include "KestovaRecordings/verify.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
enum class eRecovery
{
    eNothing,   // the file was sound
    eFinished,  // in place
    eSaved      // its whole records are in the new recording
};
KESTOVA_API const char* recoveryName(eRecovery recovery);  // "nothing", "finished", "saved"

struct tRecoveredFile
{
    std::string path;
    eRecovery recovery = eRecovery::eNothing;
    std::string result;                   // where the records are now: the file itself, or one of the new recording
    std::uint64_t kept = 0, leftOut = 0;  // records; those that are gone altogether count as far as they are known
    std::vector<tFinding> findings;       // of the file as it was
};

struct tRecoveries
{
    std::vector<tRecoveredFile> files;
    std::vector<tLeftOut> leftOut;  // nothing could be done for them: being recorded, damaged without `to`, unreadable
    std::uint64_t kept = 0, recordsLeftOut = 0;
    bool complete = false;  // false: cancelled; files that are not listed are as they were
};

struct tRecoverOptions
{
    std::string suffix = ".data";
    std::string to;  // the new recording, a folder that does not exist; empty for none
    unsigned threads = 0;
};

// Whatever happens, every file is as before or as after, and the new recording appears whole or not at all. Results are
// verified before this returns. Calls `goOn` as verifyRecordings() does. Throws tFailure if no file can be examined, if
// `to` cannot be written, or if a result is not sound. Any thread, but one at a time for one file.
KESTOVA_API tRecoveries recoverRecordings(const std::vector<std::string>& paths, const tRecoverOptions& options,
                                          const std::function<bool(const tVerifyProgress&)>& goOn);
}  // namespace recordings

#endif
