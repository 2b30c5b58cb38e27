#include "KestovaStorage/internal/capture/datagramassembly.h"

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

// Bytes that the packet claims behind headers of `headers` bytes; none where it claims not even those.
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

bool tDatagramAssembly::concerns(const tCaptureRecord& record)
{
    return record.held >= sizeof(tFrameIPHeader) &&
           be::load<std::uint16_t>(record.bytes + offsetof(tFrameHeader, frame_type)) == cIpv4FrameType &&
           static_cast<std::uint8_t>(record.bytes[cIpPos + offsetof(tIPHeader, protocol)]) == cUdpProtocol;
}

bool tDatagramAssembly::take(const tCaptureRecord& record, tDatagram& datagram)
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

bool tDatagramAssembly::takeStart(const tCaptureRecord& record, bool moreFragments, tDatagram& datagram)
{
    const auto id = ipField(record, offsetof(tIPHeader, id));
    if (record.held < cUdpPayloadPos)
    {
        if (moreFragments)
            m_pending.forget(id);  // what comes now under this identification belongs to this one
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

bool tDatagramAssembly::takeContinuation(const tCaptureRecord& record, bool moreFragments, tDatagram& datagram)
{
    const auto id = ipField(record, offsetof(tIPHeader, id));
    const tPiece piece = ipPayload(record);
    if (moreFragments)
        return !m_pending.append(id, piece) && takeOrphan(record, piece, datagram);
    std::string* bytes = nullptr;
    switch (m_pending.finish(id, piece, bytes))
    {
    case tReassembly::eEnd::eUnknown:
        return takeOrphan(record, piece, datagram);
    case tReassembly::eEnd::eEmpty:
        ++m_counts.subErr;
        return false;
    case tReassembly::eEnd::eLost:
        return drop();
    case tReassembly::eEnd::eWhole:
        break;
    }
    return takeReassembled(record, *bytes, datagram);
}

bool tDatagramAssembly::takeOrphan(const tCaptureRecord& record, const tPiece& piece, tDatagram& datagram)
{
    if (piece.claimed == 0)
        return drop();
    ++m_counts.orphans;
    datagram.source = ipAddress(record, offsetof(tIPHeader, src_ip));
    datagram.sourcePort = 0;
    datagram.stream = cNoAddress | m_lastPort;
    datagram.payload = wholePayload(record, cIpPayloadPos, piece.claimed);
    datagram.length = static_cast<int>(piece.claimed);
    return true;
}

bool tDatagramAssembly::takeReassembled(const tCaptureRecord& record, std::string& bytes, tDatagram& datagram)
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
tPiece tDatagramAssembly::ipPayload(const tCaptureRecord& record)
{
    const std::size_t claimed = claimedBehind(record, sizeof(tIPHeader));
    const std::size_t held = std::min(claimed, record.held - cIpPayloadPos);
    m_counts.padded += held < claimed;
    return {record.bytes + cIpPayloadPos, held, claimed};
}

// The `len` bytes from `pos` on, with zeros for those that the capture does not hold.
char* tDatagramAssembly::wholePayload(const tCaptureRecord& record, std::size_t pos, std::size_t len)
{
    if (len <= record.held - pos)
        return record.bytes + pos;
    m_counts.padded += pos == cUdpPayloadPos;  // a fragment was counted before
    m_padded.assign(record.bytes + pos, record.held - pos);
    m_padded.resize(len);
    return m_padded.data();
}

bool tDatagramAssembly::drop()
{
    ++m_counts.dropped;
    return false;
}
}  // namespace pcap
