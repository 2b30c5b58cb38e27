// tExportSession: writes the datagrams of a recording into a capture.
#ifndef KESTOVA_SESSIONS_EXPORT_EXPORTSESSION_H
#define KESTOVA_SESSIONS_EXPORT_EXPORTSESSION_H

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "KestovaRecordings/capturewriter.h"
#include "KestovaRecordings/packagecontents.h"
#include "KestovaRecordings/streamchoice.h"
#include "KestovaStorage/datastorageio.h"
#include "UdpSocket/netaddress.h"
#include "sessions/replay/replayprogress.h"

namespace session
{
struct tExportOptions
{
    std::string path;  // data file, or folder with data files
    std::string suffix = ".data";
    recordings::tStreamChoice streams;
    NetAddress source;    // sender of every datagram: recordings do not hold it
    std::string capture;  // to write; must not exist
};

// One thread at a time.
class tExportSession : private storage::iDataReadReplayObserver
{
public:
    // Throws tFailure if there is nothing to export, or the capture exists or cannot be made.
    explicit tExportSession(const tExportOptions& options);

    // Writes the whole capture. Calls `goOn` every few milliseconds; false cancels. Throws tFailure if it is cancelled
    // or the capture cannot be written; no capture is left then.
    void run(const std::function<bool()>& goOn);

    tReplayState state() const { return m_progress.state(); }
    recordings::tStreamCounts counts() const { return m_progress.counts(); }
    // After run().
    std::uint64_t frames() const { return m_frames; }
    std::uint64_t withoutDatagram() const { return m_noDatagram; }  // records left out: they are no datagrams
    std::uint64_t countDamaged() const;                             // records left out; reads the files' indexes

private:
    void UpdateReplayStatus(std::uint8_t status) override { m_progress.status(status); }
    void UpdateDataTimeSpan(std::uint64_t first, std::uint64_t last) override { m_progress.span(first, last); }
    void UpdateReplayData(std::uint64_t timeMs, double fraction, const char* data, unsigned int len,
                          std::string fileName) override;

    void write(std::uint64_t timeMs, const recordings::tPackageContents& package);
    std::string failure() const;

    const tExportOptions m_options;
    const std::vector<std::string> m_files;
    std::unique_ptr<recordings::tCaptureWriter> m_writer;
    // The replay thread writes them; run() reads them after its end.
    std::uint16_t m_id = 0;
    std::uint64_t m_noDatagram = 0, m_frames = 0;
    mutable std::mutex m_mutex;
    std::string m_failure;  // guarded by m_mutex
    tReplayProgress m_progress;
    storage::tDataStorageIO m_storage;  // last: its threads call this object
};
}  // namespace session

#endif
