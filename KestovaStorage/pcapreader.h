// Reads captures of radar traffic: sorts their UDP datagrams into streams, counts them, and delivers the selected ones.
//
// A capture is a pcap file with microsecond stamps, little-endian, of Ethernet frames; what tcpdump and dumpcap -P
// write on a PC. Nothing in the file's head is tested: another kind of file is read as if it were one, which finds few
// datagrams or none. Call GetFileHead first if a file may be of another kind, and ReadFrames with a source that
// understands it. Only IPv4 without options is understood unless ReadTagsAndOptions is on.
//
// A source file cannot include this header and libpcap's: that has a global struct of this namespace's name.
#ifndef KESTOVA_PCAPREADER_H
#define KESTOVA_PCAPREADER_H

#include <set>
#include <stdint.h>
#include <string>
#include <utility>
#include <vector>

#include "KestovaStorage/capturestatistics.h"
#include "KestovaStorage/framesource.h"
#include "UdpSocket/kestovaapi.h"

namespace pcap
{
struct tPcapFileHead
{
    uint32_t magic;     // 0xA1B2C3D4 for files that can be read
    uint32_t linkType;  // 1 for files that can be read
};

class tPcapReaderPrivate;

// One Read at a time; it starts no thread. Memory does not depend on the file's size: a window of 1 MiB, what is
// pending reassembly (256 MiB at most, 1 MiB a datagram: what grows beyond is dropped), and some 110 bytes a stream,
// 380 with statistics.
class KESTOVA_API tPcapReader
{
public:
    // Opens nothing. The observer is not owned, may be null, and must live as long as Read runs.
    tPcapReader(const std::string& path, iPcapDataReadObserver* observer);
    virtual ~tPcapReader();  // not from inside an observer call
    tPcapReader(const tPcapReader&) = delete;
    tPcapReader& operator=(const tPcapReader&) = delete;

    // Reads the file from its beginning to its end and returns then. `selection` holds pairs of dotted address and port
    // whose datagrams the observer gets; if it is empty, the observer gets statistics instead. May be called any number
    // of times; from inside an observer call it does nothing.
    // A file that cannot be opened (or is no regular one) is reported on standard output, as are the file's head and,
    // at the end, counts of some kinds of message. 2078- and 2620-byte datagrams to 234.5.8.23:35095 are counted and
    // not delivered. Read throws std::out_of_range at a datagram of 542, 2078 or 2620 bytes that begins with a zero
    // byte or has one in second place (see KeepReading); statistics then hold what was read so far.
    void Read(const std::set<std::pair<std::string, int>>& selection);

    // Reads the frames of a source, which is not owned, as Read reads those of the file, which is not looked at:
    // nothing is printed, and there is no progress but that of the first record and of the end.
    void ReadFrames(iPcapFrameSource& source, const std::set<std::pair<std::string, int>>& selection);

    // Ends a running Read as if the file ended behind the current record, the final calls included. From any thread and
    // from inside an observer call; does nothing if no Read runs.
    void StopRead();

    // The following are for the thread of Read, between two reads; GetUdpMulticast also inside observer calls.

    // An observer of every datagram of the selected streams, or of all streams if none is selected; not of fragments
    // without a beginning. Null, as at the start: none.
    void SetDatagramObserver(iPcapDatagramObserver* observer);
    // On: a datagram that would raise std::out_of_range is of kind Unknow, and reading continues. Off at the start.
    void KeepReading(bool on);
    // On: UpdatePcapUdpMulticast comes once, at the end of Read. Before every progress step it costs up to 20 ns a
    // stream for keeping the rows in order: nothing for dozens of streams, most of the time for tens of thousands. Off
    // at the start.
    void ReportAtEndOnly(bool on);
    // On: datagrams behind VLAN tags (802.1Q and 802.1ad) and IP options are read, and a frame with a broken IP header
    // is skipped. Off at the start: tagged frames are skipped, and options are taken for the UDP header.
    void ReadTagsAndOptions(bool on);
    // Returns the rows of the last or running Read, whatever was selected; valid until the next observer call or
    // operation.
    const std::vector<tUdpMulticast>& GetUdpMulticast();
    tPcapReadResult GetReadResult() const;

    // Reads the magic and the link type of a file. Returns false if it cannot be read or is shorter than a capture's
    // head.
    static bool GetFileHead(const std::string& path, tPcapFileHead& head);

private:
    tPcapReaderPrivate* d;
};
}  // namespace pcap

#endif
