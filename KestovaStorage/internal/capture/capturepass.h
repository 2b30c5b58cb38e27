// tCapturePass: one pass over a capture, from its first record to its last or to a stop. A capture is a tCaptureFile or
// a tFrameInput; the loop is compiled for each of them, since it runs a million times a second.
//
// Threads  starts none, locks nothing; `stop` may be set by any thread.
// Errors   read() throws what observers throw, and std::out_of_range for a datagram whose kind cannot be determined
//          (see tPcapReader); the result then holds what was read until the error.
#ifndef KESTOVA_STORAGE_CAPTURE_CAPTUREPASS_H
#define KESTOVA_STORAGE_CAPTURE_CAPTUREPASS_H

#include <atomic>

#include "KestovaStorage/internal/capture/capturefile.h"
#include "KestovaStorage/internal/capture/capturenotifier.h"
#include "KestovaStorage/internal/capture/datagramextractor.h"
#include "KestovaStorage/internal/capture/frameinput.h"
#include "KestovaStorage/internal/capture/selection.h"
#include "KestovaStorage/internal/capture/streamstatistics.h"
#include "KestovaStorage/internal/capture/traffictotals.h"

namespace pcap
{
// The settings of a read.
struct tReadRequest
{
    tSelection selection;
    bool keepReading = false;      // at a datagram whose kind cannot be determined
    bool reportAtEndOnly = false;  // no rows before progress steps
    bool tagsAndOptions = false;   // datagrams behind VLAN tags and IP options are read
};

class tCapturePass
{
public:
    // Everything is used until read() returns or throws.
    tCapturePass(const tReadRequest& request, tStreamStatistics& statistics, tCaptureNotifier& notifier,
                 tPcapReadResult& result)
        : m_request(request), m_statistics(statistics), m_notifier(notifier), m_result(result)
    {}

    void read(tCaptureFile& file, const std::atomic<bool>& stop);
    void read(tFrameInput& frames, const std::atomic<bool>& stop);
    void printTotals() const { m_totals.print(m_extractor.counts().subErr); }

private:
    template <typename tCapture>
    void readAll(tCapture& capture, const std::atomic<bool>& stop);
    void takeRecord();
    void takeDatagram(const tDatagram& datagram);
    eMessageKind kindOf(const tDatagram& datagram) const;
    void notifyProgress();
    void storeResult();

    const tReadRequest& m_request;
    tStreamStatistics& m_statistics;
    tCaptureNotifier& m_notifier;
    tPcapReadResult& m_result;

    tDatagramExtractor m_extractor;
    tTrafficTotals m_totals;
    tCaptureRecord m_record{};  // the current one, and its time
    tTimes_ms m_time = 0;
    std::uint64_t m_size = 0;  // of the file; 0: not known
    int m_permille = 0;        // of the file
};
}  // namespace pcap

#endif
