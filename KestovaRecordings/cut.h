// cutRecordings: what lies in a span of recordings, as a new recording.
#ifndef KESTOVA_RECORDINGS_CUT_H
#define KESTOVA_RECORDINGS_CUT_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "KestovaRecordings/archive.h"
#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/moment.h"
#include "KestovaRecordings/recordingoutput.h"
#include "KestovaRecordings/streamchoice.h"
#include "UdpSocket/kestovaapi.h"
#include "UdpSocket/netaddress.h"

namespace recordings
{
struct tCutOptions
{
    std::vector<std::string> paths;  // data files, and folders with data files
    std::string suffix = ".data";
    std::string folder;            // of the new recording; must not exist
    std::optional<tMoment> start;  // from the first record on
    std::optional<tMoment> end;    // before this moment; to the last record
    tStreamChoice streams;
    std::vector<NetAddress> groups;  // none: all
    std::uint64_t everyMs = 0;       // a new file every so many ms from the start; 0 for as few as can be
    std::int64_t shiftMs = 0;        // added to the times of the index; packages keep their own
    bool withState = true;
};

struct tCutResult
{
    std::vector<tNewFile> files;
    std::vector<tLeftOut> leftOut;         // paths without data files, and files that are none
    std::uint64_t startMs = 0, endMs = 0;  // the span, the end excluded; before the shift
    std::uint64_t records = 0, bytes = 0;  // in the new recording, with those that were carried
    std::uint64_t carried = 0;             // records before the start that were put at its beginning
    std::uint64_t damaged = 0;             // records of the files in the span that were left out
    bool complete = false;                 // false: cancelled, and nothing was made
};

// None of the records is in the span. The times are those of the first and the last one.
class KESTOVA_API tNothingToCut : public tFailure
{
public:
    tNothingToCut(std::uint64_t firstMs, std::uint64_t lastMs)
        : tFailure("none of the records is in the span"), m_firstMs(firstMs), m_lastMs(lastMs)
    {}
    tNothingToCut(const tNothingToCut&) = default;
    tNothingToCut& operator=(const tNothingToCut&) = default;
    ~tNothingToCut() override;

    std::uint64_t firstMs() const { return m_firstMs; }
    std::uint64_t lastMs() const { return m_lastMs; }

private:
    std::uint64_t m_firstMs, m_lastMs;
};

// Takes the records whose times lie in the span, byte for byte, with their times, finer ones too, and in their order:
// as recorded in each recording, by time between recordings that overlap. Cuts that share a place have each record
// once. Of a recording that is being written it takes what is there when it is looked at.
//
// With state the last record before the start of every stream but imageStream and originalImage, of those chosen, comes
// first, stamped with the start. The sheets of the new files say that they are cut, and how many were carried.
//
// Goes by the indexes; payload is read for the sheet's sums, and where streams are chosen or states are looked for.
// Calls `goOn` with the part that is done; false cancels. Throws tFailure, and makes nothing, if the folder exists,
// nothing lies in the span, or writing fails. Any thread.
KESTOVA_API tCutResult cutRecordings(const tCutOptions& options, const std::function<bool(double fraction)>& goOn);
}  // namespace recordings

#endif
