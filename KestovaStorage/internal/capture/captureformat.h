// The layout of a capture: the file's head, then records of a head and the bytes of one Ethernet frame.
//
//    0  24  tPcapFileHeader
//   24  16  tPcapPckHeader, followed by its cap_len bytes; and so on to the end of the file
//
// The capture's own numbers are read as little-endian, those of the frame are big-endian. Of an IP header the 20 fixed
// bytes are read: options are not understood.
#ifndef KESTOVA_STORAGE_CAPTURE_CAPTUREFORMAT_H
#define KESTOVA_STORAGE_CAPTURE_CAPTUREFORMAT_H

#include <cstddef>
#include <cstdint>

namespace pcap
{
#pragma pack(push, 1)
struct tPcapFileHeader
{
    std::uint32_t magic;  // reported, never tested, as is link_type
    std::uint16_t version_major, version_minor;
    std::uint32_t this_zone, sigfigs, snap_len, link_type;
};

struct tPcapPckHeader
{
    std::uint32_t tv_sec, tv_usec;
    std::uint32_t cap_len;  // bytes of the frame that follow
    std::uint32_t len;      // bytes that it had on the wire
};

struct tFrameHeader
{
    std::uint8_t dst_mac[6], src_mac[6];
    std::uint16_t frame_type;
};

struct tIPHeader
{
    std::uint8_t ver_hlen, tos;
    std::uint16_t total_len, id;
    std::uint16_t flag_segment;  // 3 flag bits, 13 bits of offset in units of 8 bytes
    std::uint8_t ttl, protocol;
    std::uint16_t check_sum;
    std::uint32_t src_ip, dst_ip;
};

struct tUDPHeader
{
    std::uint16_t src_port, dst_port, len, check_sum;
};

struct tFrameIPHeader
{
    tFrameHeader frame_head;
    tIPHeader ip_head;
};

// A record that starts a datagram; the payload follows.
struct tPcapUDPPackage
{
    tFrameIPHeader frame_ip_head;
    tUDPHeader udp_head;
};
#pragma pack(pop)

static_assert(sizeof(tPcapFileHeader) == 24 && offsetof(tPcapFileHeader, link_type) == 20);
static_assert(sizeof(tPcapPckHeader) == 16 && offsetof(tPcapPckHeader, cap_len) == 8);
static_assert(sizeof(tFrameHeader) == 14 && offsetof(tFrameHeader, frame_type) == 12);
static_assert(sizeof(tIPHeader) == 20 && offsetof(tIPHeader, flag_segment) == 6 && offsetof(tIPHeader, protocol) == 9);
static_assert(offsetof(tIPHeader, src_ip) == 12 && offsetof(tIPHeader, dst_ip) == 16);
static_assert(sizeof(tUDPHeader) == 8 && offsetof(tUDPHeader, dst_port) == 2);
static_assert(sizeof(tFrameIPHeader) == 34 && offsetof(tPcapUDPPackage, udp_head) == 34);
static_assert(sizeof(tPcapUDPPackage) == 42);

constexpr std::size_t cIpPos = sizeof(tFrameHeader);           // in a record
constexpr std::size_t cIpPayloadPos = sizeof(tFrameIPHeader);  // of fragments, and of the UDP header
constexpr std::size_t cUdpPayloadPos = sizeof(tPcapUDPPackage);

constexpr std::uint16_t cIpv4FrameType = 0x0800;
constexpr std::uint8_t cUdpProtocol = 17;

// The bits of flag_segment above its 13 bits of offset.
constexpr unsigned cOffsetBits = 13;
constexpr unsigned cMoreFragments = 1, cDoNotFragment = 2;

// An IP packet ends at most so far from the start of its record; bytes behind that are of no use.
constexpr std::size_t cRecordReach = sizeof(tFrameHeader) + 65'535;
}  // namespace pcap

#endif
