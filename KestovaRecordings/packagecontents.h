// tPackageContents: the fields and the payload of a segment that is a radar message package.
#ifndef KESTOVA_RECORDINGS_PACKAGECONTENTS_H
#define KESTOVA_RECORDINGS_PACKAGECONTENTS_H

#include <cstdint>
#include <optional>
#include <string_view>

#include "KestovaStorage/radarmsgpackage.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
struct tPackageContents
{
    tUdpMsgInfo info;
    std::uint32_t sequence;
    std::uint32_t ip;  // as net::transAddr returns it
    std::uint16_t port;
    std::uint64_t timeMs;
    std::string_view payload;  // points into the segment
};

// Returns the contents of a segment that is exactly one whole package: head, length and end marker agree. Returns
// nothing for any other.
KESTOVA_API std::optional<tPackageContents> viewPackage(std::string_view segment);
}  // namespace recordings

#endif
