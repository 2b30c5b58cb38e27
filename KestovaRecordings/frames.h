// The Ethernet frames that carry a datagram.
#ifndef KESTOVA_RECORDINGS_FRAMES_H
#define KESTOVA_RECORDINGS_FRAMES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "UdpSocket/kestovaapi.h"
#include "UdpSocket/netaddress.h"

namespace recordings
{
constexpr std::size_t cMtu = 1500;            // bytes of an IP packet, head included
constexpr std::size_t cMaxDatagram = 65'507;  // bytes of a message that one datagram can carry

// Returns the frames of one UDP datagram in order, with correct checksums; fragments if one frame is too small. A
// multicast datagram has the group's hardware address, any other a locally administered one. `id` is common to the
// fragments of one datagram and differs from those of the next. `payload` has cMaxDatagram bytes at most.
KESTOVA_API std::vector<std::string> framesOf(const NetAddress& from, const NetAddress& to, std::string_view payload,
                                              std::uint16_t id);
}  // namespace recordings

#endif
