#include "KestovaStorage/internal/capture/datagramextractor.h"

#include <algorithm>

#include "KestovaStorage/internal/capture/captureformat.h"
#include "common/byteorder.h"

namespace pcap
{
namespace
{
std::uint16_t ipField(const tCaptureRecord& record, std::size_t place)
{
    return be::load<std::uint16_t>(record.bytes + cIpPos + place);
}

std::uint32_t ipAddress(const tCaptureRecord& record, std::size_t place)
{
    return be::load<std::uint32_t>(record.bytes + cIpPos + place);
}

// Returns the number of bytes that the packet claims behind headers of `headers` bytes; 0 if it claims fewer.
std::size_t claimedBehind(const tCaptureRecord& record, std::size_t headers)
{
    const std::size_t total = ipField(record, offsetof(tIPHeader, total_len));
    return total > headers ? total - headers : 0;
}

std::uint16_t udpPort(const char* udpHead, std::size_t place)
{
    return be::load<std::uint16_t>(udpHead + place);
}
}  // namespace

bool tDatagramExtractor::concerns(const tCaptureRecord& record)
{
    return record.held >= sizeof(tFrameIPHeader) &&
           be::load<std::uint16_t>(record.bytes + offsetof(tFrameHeader, frame_type)) == cIpv4FrameType &&
           static_cast<std::uint8_t>(record.bytes[cIpPos + offsetof(tIPHeader, protocol)]) == cUdpProtocol;
}

bool tDatagramExtractor::take(const tCaptureRecord& record, tDatagram& datagram)
{
    const unsigned flagSegment = ipField(record, offsetof(tIPHeader, flag_segment));
    const unsigned flags = flagSegment >> cOffsetBits;
    const bool starts = (flagSegment & ((1U << cOffsetBits) - 1)) == 0;
    if (starts && (flags == cMoreFragments || (flags & ~cDoNotFragment) == 0))
        return takeStart(record, flags == cMoreFragments, datagram);
    if (!starts && flags <= cMoreFragments)
        return takeContinuation(record, flags == cMoreFragments, datagram);
    return drop();
}

bool tDatagramExtractor::takeStart(const tCaptureRecord& record, bool moreFragments, tDatagram& datagram)
{
    const auto id = ipField(record, offsetof(tIPHeader, id));
    if (record.held < cUdpPayloadPos)
    {
        if (moreFragments)
            m_pending.drop(id);  // later fragments with this identification belong to this datagram
        return drop();
    }
    const char* const udpHead = record.bytes + cIpPayloadPos;
    m_lastPort = udpPort(udpHead, offsetof(tUDPHeader, dst_port));
    if (moreFragments)
    {
        m_pending.begin(id, ipPayload(record));
        return false;
    }
    const std::size_t headers = sizeof(tIPHeader) + sizeof(tUDPHeader);
    if (ipField(record, offsetof(tIPHeader, total_len)) < headers)
        return drop();
    const std::size_t length = claimedBehind(record, headers);
    datagram.source = ipAddress(record, offsetof(tIPHeader, src_ip));
    datagram.sourcePort = udpPort(udpHead, offsetof(tUDPHeader, src_port));
    datagram.stream = destination(ipAddress(record, offsetof(tIPHeader, dst_ip)), m_lastPort);
    datagram.payload = wholePayload(record, cUdpPayloadPos, length);
    datagram.length = static_cast<int>(length);
    return true;
}

bool tDatagramExtractor::takeContinuation(const tCaptureRecord& record, bool moreFragments, tDatagram& datagram)
{
    const auto id = ipField(record, offsetof(tIPHeader, id));
    const tFragment fragment = ipPayload(record);
    if (moreFragments)
        return !m_pending.append(id, fragment) && takeOrphan(record, fragment, datagram);
    std::string* bytes = nullptr;
    switch (m_pending.finish(id, fragment, bytes))
    {
    case tReassembly::eOutcome::eUnknown:
        return takeOrphan(record, fragment, datagram);
    case tReassembly::eOutcome::eEmpty:
        ++m_counts.subErr;
        return false;
    case tReassembly::eOutcome::eLost:
        return drop();
    case tReassembly::eOutcome::eWhole:
        break;
    }
    return takeReassembled(record, *bytes, datagram);
}

bool tDatagramExtractor::takeOrphan(const tCaptureRecord& record, const tFragment& fragment, tDatagram& datagram)
{
    if (fragment.claimed == 0)
        return drop();
    ++m_counts.orphans;
    datagram.source = ipAddress(record, offsetof(tIPHeader, src_ip));
    datagram.sourcePort = 0;
    datagram.stream = cNoAddress | m_lastPort;
    datagram.payload = wholePayload(record, cIpPayloadPos, fragment.claimed);
    datagram.length = static_cast<int>(fragment.claimed);
    return true;
}

bool tDatagramExtractor::takeReassembled(const tCaptureRecord& record, std::string& bytes, tDatagram& datagram)
{
    m_lastPort = udpPort(bytes.data(), offsetof(tUDPHeader, dst_port));
    datagram.source = ipAddress(record, offsetof(tIPHeader, src_ip));
    datagram.sourcePort = udpPort(bytes.data(), offsetof(tUDPHeader, src_port));
    datagram.stream = destination(ipAddress(record, offsetof(tIPHeader, dst_ip)), m_lastPort);
    datagram.payload = bytes.data() + sizeof(tUDPHeader);
    datagram.length = static_cast<int>(bytes.size() - sizeof(tUDPHeader));
    return true;
}

// What follows the IP header.
tFragment tDatagramExtractor::ipPayload(const tCaptureRecord& record)
{
    const std::size_t claimed = claimedBehind(record, sizeof(tIPHeader));
    const std::size_t held = std::min(claimed, record.held - cIpPayloadPos);
    m_counts.padded += held < claimed;
    return {record.bytes + cIpPayloadPos, held, claimed};
}

// Returns the `len` bytes from `pos` on, with zeros for those that the capture does not hold.
char* tDatagramExtractor::wholePayload(const tCaptureRecord& record, std::size_t pos, std::size_t len)
{
    if (len <= record.held - pos)
        return record.bytes + pos;
    m_counts.padded += pos == cUdpPayloadPos;  // a fragment was counted before
    m_padded.assign(record.bytes + pos, record.held - pos);
    m_padded.resize(len);
    return m_padded.data();
}

bool tDatagramExtractor::drop()
{
    ++m_counts.dropped;
    return false;
}
}  // namespace pcap
