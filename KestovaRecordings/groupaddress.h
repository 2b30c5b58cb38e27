// A group as text.
#ifndef KESTOVA_RECORDINGS_GROUPADDRESS_H
#define KESTOVA_RECORDINGS_GROUPADDRESS_H

#include <string>

#include "UdpSocket/kestovaapi.h"
#include "UdpSocket/netaddress.h"

namespace recordings
{
// Returns the address of "239.17.0.1:6001". Throws std::invalid_argument with a sentence for the user.
KESTOVA_API NetAddress parseGroup(const std::string& text);
}  // namespace recordings

#endif
