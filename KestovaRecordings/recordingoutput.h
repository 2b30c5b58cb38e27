// tRecordingOutput: a new recording, which appears whole under its name or not at all.
#ifndef KESTOVA_RECORDINGS_RECORDINGOUTPUT_H
#define KESTOVA_RECORDINGS_RECORDINGOUTPUT_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/sheet.h"
#include "KestovaStorage/datafile.h"
#include "KestovaStorage/datafileoutput.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
struct tNewRecord
{
    std::uint64_t timeMs;    // ms since the Unix epoch, above 0 and below 2^48
    int us;                  // microseconds within that millisecond, 0 to 999, or storage::cUnknownFineTime
    std::string_view bytes;  // of the segment, 1 or more
};

// A data file of a new recording.
struct tNewFile
{
    std::string path;  // FOLDER/NAME
    std::uint64_t records = 0, bytes = 0;
    std::uint64_t firstMs = 0, lastMs = 0;
};

// Files are written into a folder beside, ".NAME.part-XXXXXX" (KestovaStorage/partfolder.h), in which no reader looks
// for recordings. commit() syncs it and renames it. The destructor removes what was not committed. What a killed
// process has left there is removed by the constructor of the next output in the same parent folder.
//
// Each data file gets its sheet. Beside the index of the file that it reads from, an output takes some 25 MB at most.
//
// One thread at a time. Operations throw tFailure, with one line that names the file and the reason, if the disk is
// full or a write fails; the object may then only be destroyed.
class KESTOVA_API tRecordingOutput
{
public:
    // Throws tFailure if there is something of that name, or no parent folder, or nothing can be written there.
    explicit tRecordingOutput(const std::string& folder);
    ~tRecordingOutput();
    tRecordingOutput(const tRecordingOutput&) = delete;
    tRecordingOutput& operator=(const tRecordingOutput&) = delete;

    // Lets every file have fine times from now on. Without it a file has them if its first record has some, or comes
    // from a file that has.
    void keepFineTimes();

    // Finishes the present data file; the next one begins with the next record. Of `about` its sheet takes what does
    // not follow from the records: recorder, radar, interface, losses, clock, notes, kept, cut, carried. `name` is the
    // file's, without a folder, and ends in ".data"; this file is made even if no record comes.
    void startFile(const tSheet& about, const std::string& name);
    // The same for a file that is named as a recorder does it, by its number, the time of its first record and
    // `extName`, unless that is empty. Without a record no such file is made.
    void startFileByTime(const tSheet& about, const std::string& extName);
    // Returns the `about` of the present file. What the caller changes goes into its sheet.
    tSheet& about();

    // Append records to the present file. A full file is followed by the next one, named by time, with the same
    // `about` but for notes, losses and `carried`, which the first one has.
    void add(const tNewRecord& record);
    // `count` records of an opened plain or compressed file from number `first` on, with their fine times; `shiftMs` is
    // added to their times. Long stretches of a plain file are copied within the kernel. Returns how many could not be
    // read and are left out.
    std::uint64_t copy(storage::tDataFile& from, std::size_t first, std::size_t count, std::int64_t shiftMs);

    std::uint64_t records() const;  // so far, in all files
    std::uint64_t bytes() const;    // of their segments

    // Finishes the last file and makes the recording appear. Returns its data files.
    std::vector<tNewFile> commit();

private:
    class tPrivate;
    std::unique_ptr<tPrivate> d;
};

// Returns what the name of a data file has behind number and time: "A1_2_B" of "0000_2024-05-17_08-30-00_A1_2_B.data";
// the whole name without its ending if it is made otherwise.
KESTOVA_API std::string extNameOf(const std::string& dataFile);
}  // namespace recordings

#endif
