// Ethernet frames with VLAN tags or IP options, made plain: the extractor reads every field at a fixed place.
#ifndef KESTOVA_STORAGE_CAPTURE_PLAINFRAME_H
#define KESTOVA_STORAGE_CAPTURE_PLAINFRAME_H

#include "KestovaStorage/internal/capture/capturefile.h"
#include "common/byteorder.h"

namespace pcap
{
constexpr char cPlainVersionAndLength = '\x45';  // IPv4, a header of 5 times 4 bytes

// Returns whether the frame is an IPv4 packet without tags and options: nearly all of them are.
inline bool isPlain(const tCaptureRecord& record)
{
    return record.held >= cIpPayloadPos &&
           be::load<std::uint16_t>(record.bytes + offsetof(tFrameHeader, frame_type)) == cIpv4FrameType &&
           record.bytes[cIpPos + offsetof(tIPHeader, ver_hlen)] == cPlainVersionAndLength;
}

// Moves the headers of a frame over its VLAN tags and IP options, so that the record begins behind the bytes that they
// took, and takes the options from the packet's length. Leaves a frame without an IPv4 packet otherwise as it is; one
// whose IP header is broken or not whole keeps too few bytes to be looked at.
void makePlain(tCaptureRecord& record);
}  // namespace pcap

#endif
