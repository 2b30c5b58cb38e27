// tDatagramCounts: counts of every stream, at two look-ups a datagram. tCountReport shows them: it takes what has
// changed since its last update.
#ifndef KESTOVA_STORAGE_CAPTURE_DATAGRAMCOUNTS_H
#define KESTOVA_STORAGE_CAPTURE_DATAGRAMCOUNTS_H

#include <cstdint>
#include <vector>

#include "KestovaStorage/internal/capture/datagramkind.h"
#include "KestovaStorage/internal/capture/destination.h"
#include "KestovaStorage/internal/capture/keyindex.h"

namespace pcap
{
struct tCountedStream
{
    tDestination key;
    std::uint64_t touched;     // number of the datagram that came last: equal counts show the latest first
    std::uint32_t count;       // datagrams
    std::uint32_t lastLength;  // place in lengths() of the datagram that came last
    std::uint16_t kinds;       // bit n: kind n was seen
    eTraffic traffic;
    bool changed;  // listed in changedStreams()
};

// How often a length occurred in a stream.
struct tCountedLength
{
    std::uint64_t touched;
    std::uint32_t stream, length, occurrences;
    bool changed;  // listed in changedLengths()
};

class tDatagramCounts
{
public:
    void clear();
    // Counts one datagram. The result is valid until the next call.
    const tCountedStream& count(tDestination key, std::uint32_t length, eMessageKind kind);

    const std::vector<tCountedStream>& streams() const { return m_streams; }  // in order of first appearance
    const std::vector<tCountedLength>& lengths() const { return m_lengths; }
    // Places of what has changed since clearChanges().
    const std::vector<std::uint32_t>& changedStreams() const { return m_changedStreams; }
    const std::vector<std::uint32_t>& changedLengths() const { return m_changedLengths; }
    void clearChanges();

private:
    std::uint32_t streamOf(tDestination key);
    std::uint32_t lengthOf(std::uint32_t stream, std::uint32_t length);
    void countLength(std::uint32_t place);

    std::vector<tCountedStream> m_streams;
    std::vector<tCountedLength> m_lengths;
    std::vector<std::uint32_t> m_changedStreams, m_changedLengths;
    tKeyIndex m_streamIndex, m_lengthIndex;  // by key; by stream and length
    std::uint32_t m_lastStream = 0;
    std::uint64_t m_touched = 0;
};
}  // namespace pcap

#endif
