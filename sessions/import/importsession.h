// tImportSession: reads a capture, and makes a recording of the selected streams.
#ifndef KESTOVA_SESSIONS_IMPORT_IMPORTSESSION_H
#define KESTOVA_SESSIONS_IMPORT_IMPORTSESSION_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "KestovaRecordings/framereader.h"
#include "KestovaStorage/pcapreader.h"
#include "sessions/import/capturestream.h"
#include "sessions/import/importrecorder.h"

namespace session
{
struct tImportOptions
{
    std::string path;                   // "-": standard input
    std::set<tCaptureGroup> selection;  // the streams to report and to record
    bool all = true;                    // all streams; ignores the selection
    std::string root;                   // storage root to record into; empty: no recording
    tRadarStreams streams;              // recorded as these; others by their messages alone
};

// The progress of reading.
struct tImportProgress
{
    double fraction = -1.0;    // of the file; negative if its size is not known
    std::uint64_t bytes = 0;   // read; 0 if the fraction is known
    std::uint64_t timeMs = 0;  // of the present record of the capture
    std::size_t streams = 0;   // found so far
};

// Reads through pcap::tPcapReader alone what that understands, all other captures through tFrameReader. One thread at a
// time.
class tImportSession : private pcap::iPcapDataReadObserver, private pcap::iPcapDatagramObserver
{
public:
    using tGoOn = std::function<bool(const tImportProgress&)>;

    // Calls `goOn` in steps of 0.1 per cent or, if the size is not known, whenever bytes come and ten times a second
    // while none do; false ends the reading. Throws tFailure if the capture cannot be read, or `root` is no folder or
    // not writable.
    tImportSession(const tImportOptions& options, tGoOn goOn);

    // Reads to the end or until `goOn` returns false, then finishes the recording. Throws tFailure if a write fails.
    void run();

    const pcap::tPcapReadResult& result() const { return m_result; }
    // Returns why the capture was not read to its end, if that is known.
    std::string failure() const { return m_frames ? m_frames->failure() : std::string(); }
    // Returns the selected streams, in the reader's order; with `all`, also a row of fragments without a beginning.
    const std::vector<pcap::tUdpMulticast>& streams() const { return m_streams; }
    tCaptureSpan spanOf(const pcap::tUdpMulticast& stream) const;
    std::vector<tCaptureGroup> silent() const;  // returns the selected streams without a datagram
    // Returns null without a root.
    const tImportRecorder* recorder() const { return m_recorder.get(); }

private:
    bool isSelected(const tCaptureGroup& group) const;
    bool bytesRead(std::uint64_t bytes);
    void UpdatePcapReadData(tTimes_ms, double, const char*, int, const char*, int) override {}
    void UpdatePcapUdpMulticast(const std::vector<pcap::tUdpMulticast>&) override {}
    void UpdatePcapReadProgress(double percent, tTimes_ms time) override;
    void UpdatePcapDatagram(const pcap::tPcapDatagram& datagram) override;

    const tImportOptions m_options;
    const tGoOn m_goOn;
    std::map<tCaptureGroup, tCaptureSpan> m_spans;
    std::uint64_t m_timeMs = 0;  // of the last datagram
    std::vector<pcap::tUdpMulticast> m_streams;
    pcap::tPcapReadResult m_result{};
    pcap::tPcapReader m_reader;
    std::unique_ptr<recordings::tFrameReader> m_frames;  // null: m_reader reads the file
    std::unique_ptr<tImportRecorder> m_recorder;
};
}  // namespace session

#endif
