// tRecordingWriter: makes a recording of messages that are at hand, with the times that they have.
#ifndef KESTOVA_SESSIONS_RECORD_RECORDINGWRITER_H
#define KESTOVA_SESSIONS_RECORD_RECORDINGWRITER_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "KestovaRecordings/sheet.h"
#include "KestovaStorage/datastorageio.h"
#include "KestovaStorage/packagerecorder.h"
#include "sessions/record/sheetkeeper.h"

namespace session
{
// One thread at a time.
class tRecordingWriter
{
public:
    // Records into a new folder below `root`, in files named after `name`; the first message starts it. `facts` is what
    // every sheet says. With `fineTimes` the files have the microseconds of the times. Switches off the deletion of old
    // data files for this process. Throws tFailure if `root` is no folder or not writable.
    tRecordingWriter(const std::string& root, std::string name, recordings::tSheet facts, bool fineTimes);

    // `group` is that of the message; `timeUs` in microseconds since the epoch, 1,000 or more. Waits while much is
    // queued. Throws tFailure if no file can be created, or something could not be written.
    void add(const tUdpMsgInfo& info, const NetAddress& group, std::string_view message, std::uint64_t timeUs);
    // Waits until everything is in the files, and finishes their sheets. Throws tFailure as add() does.
    void finish();
    const std::vector<std::string>& files() const { return m_files; }
    std::uint64_t recorded() const { return m_recorded; }

private:
    void startFile(std::uint64_t timeMs);
    void waitForDisk();
    void updateFiles();

    const std::string m_root, m_name;
    const bool m_fineTimes;
    std::vector<std::string> m_files;
    std::uint64_t m_recorded = 0, m_queuedBytes = 0;
    tSheetKeeper m_sheets;  // the storage notifies it to its end
    storage::tDataStorageIO m_storage;
    Kestova::tPackageRecorder m_packageRecorder{m_storage};
};
}  // namespace session

#endif
