#include "KestovaStorage/internal/capture/plainframe.h"

#include <algorithm>
#include <cstring>

namespace pcap
{
namespace
{
constexpr std::size_t cTagSize = 4;
constexpr std::uint16_t cTag = 0x8100, cServiceTag = 0x88A8, cOldServiceTag = 0x9100;

std::uint16_t frameType(const tCaptureRecord& record)
{
    return be::load<std::uint16_t>(record.bytes + offsetof(tFrameHeader, frame_type));
}

// Removes `len` bytes behind the first `before` bytes.
void remove(tCaptureRecord& record, std::size_t before, std::size_t len)
{
    std::memmove(record.bytes + len, record.bytes, before);
    record.bytes += len;
    record.held -= len;
}

bool isTagged(const tCaptureRecord& record)
{
    if (record.held < sizeof(tFrameHeader) + cTagSize)
        return false;
    const std::uint16_t type = frameType(record);
    return type == cTag || type == cServiceTag || type == cOldServiceTag;
}

void removeOptions(tCaptureRecord& record)
{
    char* const head = record.bytes + cIpPos;
    const auto versionAndLength = static_cast<std::uint8_t>(head[offsetof(tIPHeader, ver_hlen)]);
    const std::size_t len = std::size_t{4} * (versionAndLength & 0xF);
    const auto total = be::load<std::uint16_t>(head + offsetof(tIPHeader, total_len));
    if (versionAndLength >> 4 != 4 || len < sizeof(tIPHeader) || total < len || record.held < cIpPos + len)
    {
        record.held = std::min(record.held, sizeof(tFrameHeader));
        return;
    }
    const std::size_t options = len - sizeof(tIPHeader);
    head[offsetof(tIPHeader, ver_hlen)] = cPlainVersionAndLength;
    be::store(head + offsetof(tIPHeader, total_len), static_cast<std::uint16_t>(total - options));
    remove(record, cIpPayloadPos, options);
}
}  // namespace

void makePlain(tCaptureRecord& record)
{
    while (isTagged(record))
        remove(record, offsetof(tFrameHeader, frame_type), cTagSize);
    if (record.held >= cIpPayloadPos && frameType(record) == cIpv4FrameType && !isPlain(record))
        removeOptions(record);
}
}  // namespace pcap
