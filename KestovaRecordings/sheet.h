// The sheet of a data file: what was recorded and how well, in one JSON file beside it (schema kestova/recording/1).
//
// Names    DIR/NAME.json for DIR/NAME.data and for its compressed form DIR/NAME.tar.data, see
//          KestovaStorage/companions.h. docs/formats.md shows one.
// Identity a sheet belongs to the data file whose first record has the sheet's time and position (and length, if both
//          have the same form), with at most one bit different in all: a flipped bit in either never makes it foreign.
//          A file without records and a sheet without a first record belong together.
// Trust    nothing of a sheet is taken for a path or an allocation. What is damaged, foreign, of a later version, a
//          link, no regular file, or larger than 64 MiB is reported by its state and a reason; the file is then
//          treated as one without a sheet.
// Writing  a sheet is written beside, synced and renamed: readers see the former or the new one, whole. Whoever changes
//          a sheet reads and writes it under a tSheetLock, so that no note is lost.
// Threads  any, unless said otherwise.
#ifndef KESTOVA_RECORDINGS_SHEET_H
#define KESTOVA_RECORDINGS_SHEET_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "KestovaRecordings/streamcounts.h"
#include "KestovaRecordings/streamhistory.h"
#include "KestovaStorage/filehead.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
// A sheet is read up to this size.
constexpr std::size_t cSheetSizeLimit = std::size_t(64) << 20;
// Silences of a stream from this length on are listed in its row.
constexpr std::uint64_t cSheetGapMs = 2000;

struct tNote
{
    std::uint64_t timeMs = 0;
    std::string text;  // UTF-8
};

// A stretch of time in which a group was not joined.
struct tLostJoin
{
    std::string address;  // "239.17.0.1:6001"
    std::uint64_t fromMs = 0;
    std::uint64_t toMs = 0;  // the time of writing while it lasts
};

// What did not get into the file, by the layer that lost it. Of this file alone.
struct tSheetLosses
{
    std::uint64_t kernelDropped = 0;  // datagrams that found a receive buffer full
    std::uint64_t queueLost = 0;      // messages that were received and discarded before they were written
    std::uint64_t diskLost = 0;       // segments that could not be written
    std::vector<tLostJoin> joinsLost;
    // Numbered messages that never came, by the layout of the spokes; nothing while none has a number. What the kernel
    // dropped is among them.
    std::optional<std::uint64_t> missingOnWire;

    // Returns datagrams, messages and segments that the recorder lost; a lost join counts as 1, since nobody knows what
    // it has cost.
    std::uint64_t sum() const { return kernelDropped + queueLost + diskLost + joinsLost.size(); }
};

// The system clock was set while the file was recorded.
struct tClockStep
{
    std::uint64_t atMs = 0;  // by the clock after the step
    std::int64_t stepMs = 0;
};

struct tSheetClock
{
    std::string source;              // "system", or "capture" for an import; empty while it is not known
    std::optional<double> offsetMs;  // the receive time of RMC and ZDA sentences minus the GPS time in them: the median
    std::optional<double> driftPpm;  // of the offset over time, without the steps
    std::vector<tClockStep> steps;
};

// The first record as the file's index has it.
struct tSheetFirst
{
    std::uint64_t timeMs = 0;
    std::uint64_t position = 0;
    std::uint32_t length = 0;  // in bytes, of a compressed file in bits
};

// Messages of each second that has some: by the second since the Unix epoch, ascending.
using tPerSecond = std::vector<std::pair<std::uint64_t, std::uint32_t>>;

struct tSheetStream
{
    tStreamKey key;
    std::uint64_t messages = 0;
    std::uint64_t bytes = 0;  // of the messages, without what a package adds
    tDigest digest;
    std::uint64_t firstMs = 0, lastMs = 0;  // the earliest and the latest
    std::uint64_t longestSilenceMs = 0;
    std::uint64_t kernelDropped = 0;
    std::optional<std::uint64_t> missingOnWire;
    std::vector<tGap> gaps;  // the 16 longest silences of cSheetGapMs or more, the longest first
    tPerSecond perSecond;
};

// Checksums (CRC32C) of runs of records. A block ends with the second, of recorded time, that it began in, and before
// the record with which its segments exceed 1 MiB; a record alone may be longer.
struct tSheetBlocks
{
    std::vector<std::uint32_t> records;        // how many each block has; their sum are the records of the sheet
    std::vector<std::uint32_t> payloadCrc32c;  // of the segments back to back, decoded: the same in both forms
    std::vector<std::uint32_t> indexCrc32c;    // of the index slots as the file in the sheet's form has them
};

struct tSheet
{
    bool kept = false;  // nothing may delete the file
    std::uint64_t records = 0;
    std::uint64_t bytes = 0;                // of the segments, decoded
    std::uint64_t firstMs = 0, lastMs = 0;  // the earliest and the latest record
    std::string id;                         // 32 hexadecimal digits, random; binds sheet and fine times. May be empty
    storage::tFileHeadSymbol form = storage::cDataFileHead;
    std::optional<tSheetFirst> first;
    bool finished = false;      // the recording ended as it should: blocks and heads cover the whole file
    bool cut = false;           // cut, merged or recovered: gaps in package numbers mean nothing
    std::uint64_t carried = 0;  // records at the file's start that stand for the state before it

    std::string recorderVersion, recorderHost;
    std::string radarSerial;  // empty without a radar
    std::uint16_t radarId = 0;
    std::map<std::string, std::string> radarAddresses;  // by stream
    std::string spokeLayout;  // of the radar: JSON for utils::parseSpokeLayouts, not yet checked; empty: not known
    std::string interface;    // that received: name and address
    tSheetLosses losses;
    tSheetClock clock;
    std::vector<tNote> notes;    // in the order in which they were added
    std::vector<tGap> silences;  // of everything, longer than cSilenceMs, in order of time
    std::vector<tSheetStream> streams;
    std::optional<std::uint32_t> headCrc32c;  // of the file's bytes 0 to 2047, once it is finished
    tSheetBlocks blocks;
    std::optional<std::uint32_t> fineCrc32c;  // of the records of the fine times, 2 bytes each, once it is finished
    bool notesOnly = false;                   // made by addNote() or setKept() for a file without a sheet
};

enum class eSheetState
{
    eNone,     // there is none
    eOurs,     // and whole
    eForeign,  // of another file
    eDamaged   // or of a later version, or nothing that may be read
};

struct tFoundSheet
{
    eSheetState state = eSheetState::eNone;
    std::string reason;  // one sentence for the user where the state is eForeign or eDamaged; names the sheet
    tSheet sheet;        // set where the state is eOurs

    explicit operator bool() const { return state == eSheetState::eOurs; }
};

// Reads the sheet of a data file, which must exist: of its bytes only the magic and the first index slot are read. Does
// not throw for what it finds.
KESTOVA_API tFoundSheet readSheet(const std::string& dataFile);

// Returns what a text says, without a file: throws tFailure for what is no sheet of this version.
KESTOVA_API tSheet parseSheet(const std::string& json);
// Returns the text, of one line. Bytes that are no UTF-8 are replaced.
KESTOVA_API std::string sheetText(const tSheet& sheet);

// What the first 4 KiB of a sheet say.
struct tSheetSummary
{
    eSheetState state = eSheetState::eNone;  // eOurs, eForeign or eDamaged as for readSheet(), as far as these tell
    std::string reason;
    bool kept = false, finished = false, cut = false, notesOnly = false;
    std::uint64_t notes = 0;  // how many
    std::uint64_t lost = 0;   // tSheetLosses::sum()
    std::uint64_t records = 0, bytes = 0, firstMs = 0, lastMs = 0, carried = 0;
    std::string id;
    storage::tFileHeadSymbol form = storage::cDataFileHead;
    std::optional<tSheetFirst> first;
    std::string radarSerial;  // and the id, where they lie within the 4 KiB
    std::uint16_t radarId = 0;

    explicit operator bool() const { return state == eSheetState::eOurs; }
};

// Reads the first 4 KiB of the sheet of a data file and, for its identity, of the file what readSheet() reads. About
// 20 microseconds.
KESTOVA_API tSheetSummary readSheetSummary(const std::string& dataFile);

// Holds the sheets of the data file's folder against every other holder, of all processes, from construction to
// destruction; without a lock where the file system has none. Not recursive: one at a time in a thread.
class KESTOVA_API tSheetLock
{
public:
    explicit tSheetLock(const std::string& dataFile);  // waits
    ~tSheetLock();
    tSheetLock(const tSheetLock&) = delete;
    tSheetLock& operator=(const tSheetLock&) = delete;

private:
    int m_folder = -1;
};

// Writes the sheet as it is in place of the one that is there, and syncs it. The caller holds the tSheetLock of the
// folder, unless nobody else knows of the folder yet. Throws tFailure, and changes nothing, if that fails.
KESTOVA_API void writeSheet(const std::string& dataFile, const tSheet& sheet);

// Changes the sheet under a lock of its own, also while a recorder writes it. A file without a sheet, with a foreign or
// a damaged one, gets one with this alone. Throws tFailure, and changes nothing, if there is no such file, writing
// fails, or the sheet is of a later version.
KESTOVA_API void addNote(const std::string& dataFile, const tNote& note);
KESTOVA_API void setKept(const std::string& dataFile, bool kept);

// After the file got another form, of the same records: sets form, first record, head and index checksums to what the
// file has now and keeps everything else. Under a lock of its own; does nothing without a sheet, or for a foreign or
// damaged one. `dataFile` is the present form. Throws tFailure if reading or writing fails.
KESTOVA_API void refreshSheet(const std::string& dataFile);
}  // namespace recordings

#endif
