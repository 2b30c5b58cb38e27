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
#include "KestovaStorage/datafile.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
struct tSheet;

constexpr std::uint16_t cUnknownUs = 0xFFFF;

struct tNewRecord
{
    std::uint64_t timeMs;    // ms since the Unix epoch, above 0
    std::uint16_t us;        // microseconds within that millisecond, or cUnknownUs
    std::string_view bytes;  // of the segment, 1 or more
};

// Files are written into a folder beside, ".NAME.part-XXXXXX" (KestovaStorage/partfolder.h), in which no reader looks
// for recordings. commit() syncs it and renames it. The destructor removes what was not committed; what a killed
// process has left is removed by the next output in the same parent folder, and by nothing else.
//
// Each data file gets its sheet, and its fine times if one of its records has some; see sheet.h. Memory: a buffer of
// 1 MiB and the index of the present file.
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

    // Finishes the present data file and begins the next one. Of `about` the sheet takes what does not follow from the
    // records: recorder, radar, interface, losses, clock, notes, kept, cut, carried. `name` is the file's, without a
    // folder, and ends in ".data"; without one the file is named as a recorder does it, with its number, the time of
    // its first record and `extName`, and begins with that record.
    void startFile(const tSheet& about, const std::string& name);
    void startNamedByTime(const tSheet& about, const std::string& extName);

    // Append records to the present file. A full file is followed by the next one, with the same `about`; notes,
    // losses and `carried` stay with the first.
    void add(const tNewRecord& record);
    // `count` records of an opened plain or compressed file from number `first` on, with their fine times, moved by
    // `shiftMs`. Records that lie back to back in a plain file are copied within the kernel. Returns how many could
    // not be read and are left out.
    std::uint64_t copy(storage::tDataFile& from, std::size_t first, std::size_t count, std::int64_t shiftMs);

    std::uint64_t records() const;  // so far, in all files
    std::uint64_t bytes() const;    // of their segments

    // Finishes the last file and makes the recording appear. Returns its data files, as FOLDER/NAME.
    std::vector<std::string> commit();

private:
    class tPrivate;
    std::unique_ptr<tPrivate> d;
};
}  // namespace recordings

#endif
