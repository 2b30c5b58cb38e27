// tCapturePass: one pass over a capture, from its first record to its last or to a stop.
//
// Threads  starts none, locks nothing; the stop may come from any thread.
// Errors   what observers throw, and std::out_of_range of a datagram whose kind cannot be determined (see
//          tPcapReader), leave read(); the result has what was read until then.
#ifndef KESTOVA_STORAGE_CAPTURE_CAPTUREPASS_H
#define KESTOVA_STORAGE_CAPTURE_CAPTUREPASS_H

#include <atomic>

#include "KestovaStorage/internal/capture/capturefile.h"
#include "KestovaStorage/internal/capture/capturenotifier.h"
#include "KestovaStorage/internal/capture/datagramassembly.h"
#include "KestovaStorage/internal/capture/messagecounts.h"
#include "KestovaStorage/internal/capture/selection.h"
#include "KestovaStorage/internal/capture/streamstatistics.h"

namespace pcap
{
// What an application asked of a reader.
struct tReadRequest
{
    tSelection selection;
    bool keepReading = false;      // at a datagram whose kind cannot be determined
    bool reportAtEndOnly = false;  // no rows before progress steps
};

class tCapturePass
{
public:
    // Everything is used until read() returns or throws.
    tCapturePass(tCaptureFile& file, const tReadRequest& request, tStreamStatistics& statistics,
                 tCaptureNotifier& notifier, tPcapReadResult& result)
        : m_file(file), m_request(request), m_statistics(statistics), m_notifier(notifier), m_result(result)
    {}

    void read(const std::atomic<bool>& stop);

private:
    void takeRecord();
    void takeDatagram(const tDatagram& datagram);
    eKind kindOf(const tDatagram& datagram) const;
    void notifyProgress();
    void noteResult();

    tCaptureFile& m_file;
    const tReadRequest& m_request;
    tStreamStatistics& m_statistics;
    tCaptureNotifier& m_notifier;
    tPcapReadResult& m_result;

    tDatagramAssembly m_assembly;
    tMessageCounts m_counts;
    tCaptureRecord m_record{};  // the one in hand, and its time
    tTimes_ms m_time = 0;
    int m_permille = 0;  // of the file
};
}  // namespace pcap

#endif
