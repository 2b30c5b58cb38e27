// A segment read as a radar message package.
#ifndef KESTOVA_RECORDINGS_PACKAGEVIEW_H
#define KESTOVA_RECORDINGS_PACKAGEVIEW_H

#include <cstdint>
#include <optional>
#include <string_view>

#include "KestovaStorage/radarmsgpackage.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
struct tPackageView
{
    tUdpMsgInfo info;
    std::uint32_t sequence;
    std::uint32_t ip;  // as net::transAddr returns it
    std::uint16_t port;
    std::uint64_t timeMs;
    std::string_view payload;  // bytes of the segment that was read
};

// Returns nothing for a segment that is not exactly one whole package: head, length and end marker must agree.
KESTOVA_API std::optional<tPackageView> viewPackage(std::string_view segment);
}  // namespace recordings

#endif
