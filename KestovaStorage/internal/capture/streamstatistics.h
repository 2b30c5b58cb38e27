// tStreamStatistics: the counts of one read and the rows that show them.
#ifndef KESTOVA_STORAGE_CAPTURE_STREAMSTATISTICS_H
#define KESTOVA_STORAGE_CAPTURE_STREAMSTATISTICS_H

#include <vector>

#include "KestovaStorage/internal/capture/countreport.h"
#include "KestovaStorage/internal/capture/datagramcounts.h"

namespace pcap
{
class tStreamStatistics
{
public:
    void clear()
    {
        m_report.clear();
        m_counts.clear();
    }
    // Counts one datagram; the result is valid until the next call.
    const tCountedStream& count(tDestination key, std::uint32_t length, eMessageKind kind)
    {
        return m_counts.count(key, length, kind);
    }
    // Returns the current rows. An exception clears the counts, since half-updated rows match none.
    const std::vector<tUdpMulticast>& rows()
    try
    {
        return m_report.update(m_counts);
    }
    catch (...)
    {
        clear();
        throw;
    }

private:
    tDatagramCounts m_counts;
    tCountReport m_report;
};
}  // namespace pcap

#endif
