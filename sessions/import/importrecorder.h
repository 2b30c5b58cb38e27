// tImportRecorder: records the datagrams of a capture with the times of the capture.
#ifndef KESTOVA_SESSIONS_IMPORT_IMPORTRECORDER_H
#define KESTOVA_SESSIONS_IMPORT_IMPORTRECORDER_H

#include <cstdint>
#include <string>
#include <vector>

#include "KestovaStorage/datastorageio.h"
#include "KestovaStorage/packagerecorder.h"
#include "KestovaStorage/pcapreader.h"
#include "sessions/record/sheetkeeper.h"

namespace session
{
// One thread at a time.
class tImportRecorder
{
public:
    // Records into a new folder below `root`, in files named after `name`; the first datagram starts it. Switches off
    // the deletion of old data files for this process. Throws tFailure if `root` is no folder or not writable.
    tImportRecorder(const std::string& root, std::string name);

    // Records with this info block; null: one by the kind of message, if it is known. Throws tFailure if no file can be
    // created.
    void add(const pcap::tPcapDatagram& datagram, const tUdpMsgInfo* info);
    // Waits until everything is in the files, and finishes their sheets. Throws tFailure if something could not be
    // written.
    void finish();
    const std::vector<std::string>& files() const { return m_files; }
    std::uint64_t recorded() const { return m_recorded; }
    std::uint64_t tooLong() const { return m_tooLong; }  // skipped: longer than a datagram can be

private:
    void startFile(std::uint64_t timeMs);
    void waitForDisk();
    void updateFiles();

    const std::string m_root, m_name;
    std::vector<std::string> m_files;
    std::uint64_t m_recorded = 0, m_tooLong = 0, m_queuedBytes = 0;
    tSheetKeeper m_sheets;  // the storage notifies it to its end
    storage::tDataStorageIO m_storage;
    Kestova::tPackageRecorder m_packageRecorder{m_storage};
};
}  // namespace session

#endif
