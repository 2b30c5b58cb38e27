// Ethernet frames for a datagram, as they would have been on the wire: checksums right, in fragments where one frame
// does not hold it.
#ifndef KESTOVA_RECORDINGS_FRAMES_H
#define KESTOVA_RECORDINGS_FRAMES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "UdpSocket/netaddress.h"

namespace tool
{
constexpr std::size_t cMtu = 1500;  // bytes of an IP packet, head included

// The frames of one UDP datagram in their order. Multicast goes to the group's hardware address, everything else to
// one of a locally administered pair. `id` tells the fragments of one datagram from those of another; `payload` has
// 65,507 bytes at most.
std::vector<std::string> framesOf(const NetAddress& from, const NetAddress& to, std::string_view payload,
                                  std::uint16_t id);
}  // namespace tool

#endif
