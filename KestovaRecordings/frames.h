// Ethernet frames for a datagram, as they would have been on the wire.
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

// Returns the frames of one UDP datagram in their order, with right checksums; fragments if one frame is too small.
// Multicast goes to the group's hardware address, everything else to a locally administered one. `id` tells the
// fragments of one datagram from those of another. `payload` has cMaxDatagram bytes at most.
KESTOVA_API std::vector<std::string> framesOf(const NetAddress& from, const NetAddress& to, std::string_view payload,
                                              std::uint16_t id);
}  // namespace recordings

#endif
