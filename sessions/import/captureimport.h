// tCaptureImport: turns datagrams of a capture into a recording that replay plays.
#ifndef KESTOVA_SESSIONS_IMPORT_CAPTUREIMPORT_H
#define KESTOVA_SESSIONS_IMPORT_CAPTUREIMPORT_H

#include <cstdint>
#include <string>
#include <vector>

#include "KestovaStorage/datastorageio.h"
#include "KestovaStorage/packagerecorder.h"
#include "KestovaStorage/pcapreader.h"

namespace session
{
// One thread at a time.
class tCaptureImport
{
public:
    // Records into a new folder below `root`, in files named after `name`; the first datagram starts it. Nothing that
    // is already there is deleted, however full the disk is. Throws tFailure for a root that is no folder or may not be
    // written.
    tCaptureImport(const std::string& root, std::string name);

    // Throws tFailure if no file can be created.
    void add(const pcap::tPcapDatagram& datagram);
    // Waits until everything is in the files. Throws tFailure if something could not be written.
    void finish();
    const std::vector<std::string>& files() const { return m_files; }
    std::uint64_t recorded() const { return m_recorded; }
    std::uint64_t tooLong() const { return m_tooLong; }  // longer than a datagram can be, left out

private:
    void start(std::uint64_t timeMs);
    void waitForDisk();
    void noteFile();

    const std::string m_root, m_name;
    std::vector<std::string> m_files;
    std::uint64_t m_recorded = 0, m_tooLong = 0, m_queuedBytes = 0;
    storage::tDataStorageIO m_storage;
    Kestova::tPackageRecorder m_recorder{m_storage};
};
}  // namespace session

#endif
