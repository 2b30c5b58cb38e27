// The names of stream kinds (eReadWriteType) and message kinds (eMsgType) in directory files, options and reports. All
// functions may be called from any thread.
#ifndef KESTOVA_STREAMNAMES_H
#define KESTOVA_STREAMNAMES_H

#include <string>

#include "UdpSocket/kestovaapi.h"

namespace utils
{
// Kinds 0 to 17 have an address in a radar's directory record; the others have a name only.
constexpr unsigned int cStreamKinds = 18;
// Every kind that has a name is below this.
constexpr unsigned int cStreamKindLimit = 256;

// Returns "imageStream" (0) to "radarClientState" (17), "radarCheck" (254), "otherType" (255); null for any other
// number.
KESTOVA_API const char* streamName(unsigned int kind);
// Returns the kind of that name; -1 if there is none.
KESTOVA_API int streamKind(const std::string& name);
// Returns "identify" (0) to "radarClientType" (8); null for any other number.
KESTOVA_API const char* messageName(unsigned int type);
}  // namespace utils

#endif
