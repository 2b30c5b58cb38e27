// tDatagramExtractor: extracts whole UDP datagrams from the records of a capture.
//
// take() returns true for a record that completes one. A fragment without a beginning counts as a datagram by itself,
// to no address and to the port of the datagram before it: the statistics show that something was lost.
#ifndef KESTOVA_STORAGE_CAPTURE_DATAGRAMEXTRACTOR_H
#define KESTOVA_STORAGE_CAPTURE_DATAGRAMEXTRACTOR_H

#include <cstdint>
#include <string>

#include "KestovaStorage/internal/capture/capturefile.h"
#include "KestovaStorage/internal/capture/destination.h"
#include "KestovaStorage/internal/capture/reassembly.h"

namespace pcap
{
struct tDatagram
{
    std::uint32_t source;  // as a number: 127.0.0.1 is 0x7F000001
    std::uint16_t sourcePort;
    tDestination stream;  // its destination
    char* payload;        // valid until the next record; payload[length] may be written to and must be restored
    int length;           // above or, for a datagram without payload, equal to 0
};

struct tExtractionCounts
{
    int subErr = 0;             // last fragments of datagrams whose first fragment had no byte
    std::uint64_t orphans = 0;  // fragments without a beginning
    std::uint64_t dropped = 0;  // records that are neither a datagram nor a fragment of one, or are broken
    std::uint64_t padded = 0;   // datagrams and fragments of which the capture does not hold every byte
};

class tDatagramExtractor
{
public:
    // Returns whether the record is an IPv4 packet of UDP with whole headers; take() requires it.
    static bool concerns(const tCaptureRecord& record);

    bool take(const tCaptureRecord& record, tDatagram& datagram);
    const tExtractionCounts& counts() const { return m_counts; }
    std::size_t pending() const { return m_pending.count(); }

private:
    bool takeStart(const tCaptureRecord& record, bool moreFragments, tDatagram& datagram);
    bool takeContinuation(const tCaptureRecord& record, bool moreFragments, tDatagram& datagram);
    bool takeOrphan(const tCaptureRecord& record, const tFragment& fragment, tDatagram& datagram);
    bool takeReassembled(const tCaptureRecord& record, std::string& bytes, tDatagram& datagram);
    tFragment ipPayload(const tCaptureRecord& record);
    char* wholePayload(const tCaptureRecord& record, std::size_t pos, std::size_t len);
    bool drop();

    tReassembly m_pending;
    std::string m_padded;          // the payload of a record that does not hold all of it
    std::uint16_t m_lastPort = 0;  // destination port of the datagram before
    tExtractionCounts m_counts;
};
}  // namespace pcap

#endif
