// tCaptureSession: reads a capture, and makes a recording of the selected streams.
#ifndef KESTOVA_SESSIONS_IMPORT_CAPTURESESSION_H
#define KESTOVA_SESSIONS_IMPORT_CAPTURESESSION_H

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
#include "sessions/import/captureimport.h"

namespace session
{
using tCaptureGroup = std::pair<std::string, int>;  // address and port, as the reader reports them

struct tCaptureOptions
{
    std::string path;
    std::set<tCaptureGroup> selection;  // the streams to report and to record
    bool all = true;                    // all of them, whatever is selected
    std::string root;                   // storage root to record into; empty: no recording
};

// A stream of the capture over time.
struct tCaptureSpan
{
    std::uint64_t firstUs = 0, lastUs = 0;
    std::uint64_t bytes = 0;
};

// How far reading has come.
struct tCaptureProgress
{
    double fraction = 0.0;     // of the file
    std::uint64_t timeMs = 0;  // of the record in hand
    std::size_t streams = 0;   // found so far
};

// One thread at a time.
class tCaptureSession : private pcap::iPcapDataReadObserver, private pcap::iPcapDatagramObserver
{
public:
    // Throws tFailure for a capture that cannot be read, and for a root that is no folder or may not be written.
    explicit tCaptureSession(const tCaptureOptions& options);

    // Reads to the end or until `goOn`, called in steps of 0.1 per cent, returns false; then finishes the recording.
    // Throws tFailure if something could not be written.
    void run(std::function<bool(const tCaptureProgress&)> goOn);

    const pcap::tPcapReadResult& result() const { return m_result; }
    // The selected streams, in the reader's order. Fragments without a beginning have a row only if all are selected.
    const std::vector<pcap::tUdpMulticast>& streams() const { return m_streams; }
    tCaptureSpan spanOf(const pcap::tUdpMulticast& stream) const;
    std::vector<tCaptureGroup> silent() const;  // selected, and without a datagram
    // Null without a root.
    const tCaptureImport* recording() const { return m_import.get(); }

private:
    bool isSelected(const tCaptureGroup& group) const;
    void UpdatePcapReadData(tTimes_ms, double, const char*, int, const char*, int) override {}
    void UpdatePcapUdpMulticast(const std::vector<pcap::tUdpMulticast>&) override {}
    void UpdatePcapReadProgress(double percent, tTimes_ms time) override;
    void UpdatePcapDatagram(const pcap::tPcapDatagram& datagram) override;

    const tCaptureOptions m_options;
    std::function<bool(const tCaptureProgress&)> m_goOn;
    std::map<tCaptureGroup, tCaptureSpan> m_spans;
    std::vector<pcap::tUdpMulticast> m_streams;
    pcap::tPcapReadResult m_result{};
    std::unique_ptr<tCaptureImport> m_import;
    pcap::tPcapReader m_reader;
};
}  // namespace session

#endif
