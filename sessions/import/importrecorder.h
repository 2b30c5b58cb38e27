// tImportRecorder: records the datagrams of a capture with the times of the capture.
#ifndef KESTOVA_SESSIONS_IMPORT_IMPORTRECORDER_H
#define KESTOVA_SESSIONS_IMPORT_IMPORTRECORDER_H

#include <cstdint>
#include <string>
#include <vector>

#include "KestovaStorage/pcapreader.h"
#include "sessions/record/recordingwriter.h"

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
    void finish() { m_writer.finish(); }
    const std::vector<std::string>& files() const { return m_writer.files(); }
    std::uint64_t recorded() const { return m_writer.recorded(); }
    std::uint64_t tooLong() const { return m_tooLong; }  // skipped: longer than a datagram can be

private:
    std::uint64_t m_tooLong = 0;
    tRecordingWriter m_writer;
};
}  // namespace session

#endif
