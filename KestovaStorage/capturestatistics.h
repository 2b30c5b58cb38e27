// What a tPcapReader finds in a capture, and who receives it: statistics of streams, single datagrams, and how a read
// went.
#ifndef KESTOVA_CAPTURESTATISTICS_H
#define KESTOVA_CAPTURESTATISTICS_H

#include <map>
#include <set>
#include <stdint.h>
#include <string>
#include <tuple>
#include <vector>

#include "KestovaUtils/timeparser.h"
#include "UdpSocket/kestovaapi.h"

namespace pcap
{
// What was seen of one stream, that is of all datagrams to one address and port.
struct tUdpMulticast
{
    tUdpMulticast() : port(0), count(0) {}
    tUdpMulticast(const std::string& dotted, int number) : address(dotted), port(number), count(0) {}

    // By count, then by address and port: sorting puts the rarest first.
    bool operator<(const tUdpMulticast& other) const
    {
        return std::tie(count, address, port) < std::tie(other.count, other.address, other.port);
    }

    std::string address;              // dotted; empty for fragments of which the beginning is missing
    int port;                         // for these the port of the datagram before
    uint32_t count;                   // datagrams
    std::multimap<int, int> lengths;  // how often a length occurred, and the length; the most frequent is the last
    // The kinds of message seen: Spoke, OriSpoke, "Spoke OriSpoke", RadarCtrl, RadarState, RATTM, RHTTM, INS, Unknow.
    std::set<std::string> types;
};

// Receives what a tPcapReader finds, during Read and on the thread that called it. Pointers and references are valid
// during the call only. An exception that leaves an observer leaves Read.
class KESTOVA_API iPcapDataReadObserver
{
public:
    virtual ~iPcapDataReadObserver() = default;
    // A datagram of a selected stream: its capture time, its place in the file (0.0 to 1.0), its destination, its
    // payload and the payload's length; a zero byte that `len` does not count follows. Sentences to the addresses of
    // sensors carry their time: in place of a final "\r\n" they end in "$PCKTIM$2024-05-17 08:30:00.250$\r\n" (local
    // time).
    // At the end of the file, if anything was selected, one call with time 0, progress -1.0, nulls and zeros.
    virtual void UpdatePcapReadData(tTimes_ms time, double progress, const char* address, int port, const char* data,
                                    int len) = 0;
    // Percent of the file that is read, in steps of 0.1, and the time of the current record; 0.0 if the file's first
    // record is a datagram. Ends with 100.0 and time 0.
    virtual void UpdatePcapReadProgress(double percent, tTimes_ms time) = 0;
    // If nothing is selected: a row a stream, the most frequent first, before every progress step and at the end. Among
    // equally frequent streams the one that reached its count last stands first.
    virtual void UpdatePcapUdpMulticast(const std::vector<tUdpMulticast>& streams) = 0;
};

// A datagram with all that the capture holds of it.
struct tPcapDatagram
{
    uint64_t time_us;  // since the Unix epoch, as captured
    uint64_t record;   // number in the file, from 1, of the record that completed it
    const char* sourceAddress;
    int sourcePort;
    const char* address;
    int port;
    const char* kind;     // one of tUdpMulticast::types
    const char* payload;  // as sent, nothing rewritten; a zero byte follows
    int len;              // 0 for an empty datagram
};

class KESTOVA_API iPcapDatagramObserver
{
public:
    virtual ~iPcapDatagramObserver() = default;
    // Called on the thread of Read, before UpdatePcapReadData; pointers are valid during the call only.
    virtual void UpdatePcapDatagram(const tPcapDatagram& datagram) = 0;
};

// How the last Read went.
struct tPcapReadResult
{
    bool opened;               // the file could be opened
    bool finished;             // it was read to its end
    bool stopped;              // StopRead ended it
    bool cut;                  // its last record, or a head, is incomplete
    uint64_t fileBytes;        // size of the file
    uint64_t records;          // read
    uint64_t skippedRecords;   // no UDP over IPv4, or too short
    uint64_t droppedRecords;   // UDP, and neither a datagram nor a fragment that can be used
    uint64_t datagrams;        // counted in the statistics, fragments without a beginning included
    uint64_t orphans;          // fragments without a beginning
    uint64_t padded;           // datagrams and fragments that the capture holds only in part: the rest reads as zeros
    uint64_t emptyBeginnings;  // datagrams whose first fragment had no byte
    uint64_t pending;          // datagrams that never became whole
    uint64_t firstTime_us, lastTime_us;  // of the first and the last record of UDP; 0 if there was none
};
}  // namespace pcap

#endif
