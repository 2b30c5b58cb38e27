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
#include <utility>
#include <vector>

#include "KestovaStorage/pcapreader.h"
#include "sessions/import/importrecorder.h"

namespace session
{
using tCaptureGroup = std::pair<std::string, int>;  // address and port, as the reader reports them

struct tImportOptions
{
    std::string path;
    std::set<tCaptureGroup> selection;  // the streams to report and to record
    bool all = true;                    // all streams; ignores the selection
    std::string root;                   // storage root to record into; empty: no recording
};

// A stream of the capture over time.
struct tCaptureSpan
{
    std::uint64_t firstUs = 0, lastUs = 0;
    std::uint64_t bytes = 0;
};

// The progress of reading.
struct tImportProgress
{
    double fraction = 0.0;     // of the file
    std::uint64_t timeMs = 0;  // of the present record of the capture
    std::size_t streams = 0;   // found so far
};

// One thread at a time.
class tImportSession : private pcap::iPcapDataReadObserver, private pcap::iPcapDatagramObserver
{
public:
    // Throws tFailure if the capture cannot be read, or `root` is no folder or not writable.
    explicit tImportSession(const tImportOptions& options);

    // Reads to the end or until `goOn`, called in steps of 0.1 per cent, returns false; then finishes the recording.
    // Throws tFailure if a write fails.
    void run(std::function<bool(const tImportProgress&)> goOn);

    const pcap::tPcapReadResult& result() const { return m_result; }
    // Returns the selected streams, in the reader's order; with `all`, also a row of fragments without a beginning.
    const std::vector<pcap::tUdpMulticast>& streams() const { return m_streams; }
    tCaptureSpan spanOf(const pcap::tUdpMulticast& stream) const;
    std::vector<tCaptureGroup> silent() const;  // returns the selected streams without a datagram
    // Returns null without a root.
    const tImportRecorder* recorder() const { return m_recorder.get(); }

private:
    bool isSelected(const tCaptureGroup& group) const;
    void UpdatePcapReadData(tTimes_ms, double, const char*, int, const char*, int) override {}
    void UpdatePcapUdpMulticast(const std::vector<pcap::tUdpMulticast>&) override {}
    void UpdatePcapReadProgress(double percent, tTimes_ms time) override;
    void UpdatePcapDatagram(const pcap::tPcapDatagram& datagram) override;

    const tImportOptions m_options;
    std::function<bool(const tImportProgress&)> m_goOn;
    std::map<tCaptureGroup, tCaptureSpan> m_spans;
    std::vector<pcap::tUdpMulticast> m_streams;
    pcap::tPcapReadResult m_result{};
    std::unique_ptr<tImportRecorder> m_recorder;
    pcap::tPcapReader m_reader;
};
}  // namespace session

#endif
