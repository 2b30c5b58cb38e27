// tCountReport: the statistics as observers receive them: a row a stream, the most frequent first and among equals the
// one that reached its count last.
//
// Rows stay where they are from one report to the next; an update costs what has changed, and moves of the rows
// between the old place and the new one of a changed row.
#ifndef KESTOVA_STORAGE_CAPTURE_COUNTREPORT_H
#define KESTOVA_STORAGE_CAPTURE_COUNTREPORT_H

#include <cstdint>
#include <map>
#include <vector>

#include "KestovaStorage/capturestatistics.h"
#include "KestovaStorage/internal/capture/datagramcounts.h"

namespace pcap
{
class tCountReport
{
public:
    void clear();
    // Brings the rows up to date and takes the table's changes from it. Every table needs a report of its own.
    const std::vector<tUdpMulticast>& update(tDatagramCounts& table);

private:
    void mergeChanged(const tDatagramCounts& table);
    void makeRoom(std::size_t rows);
    std::uint32_t takeOut(std::uint32_t stream, std::vector<tUdpMulticast>& taken);
    void put(std::size_t position, tUdpMulticast&& row, std::uint32_t stream);
    void updateLengths(const tDatagramCounts& table);

    std::vector<tUdpMulticast> m_udpsInfoOut;
    std::vector<std::uint32_t> m_streamAt, m_positionOf;  // between positions in m_udpsInfoOut and places in the table
    std::vector<std::multimap<int, int>::iterator> m_lengthEntries;  // of every length that is in a row
};
}  // namespace pcap

#endif
