// A group as command lines spell it.
#ifndef KESTOVA_RECORDINGS_GROUPADDRESS_H
#define KESTOVA_RECORDINGS_GROUPADDRESS_H

#include <string>

#include "UdpSocket/netaddress.h"

namespace tool
{
// "239.17.0.1:6001". Throws std::invalid_argument with a sentence for the user.
NetAddress parseGroup(const std::string& text);
}  // namespace tool

#endif
