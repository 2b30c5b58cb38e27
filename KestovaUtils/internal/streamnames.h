// The names of the stream kinds, as a directory file and the command line spell them.
#ifndef KESTOVA_UTILS_STREAMNAMES_H
#define KESTOVA_UTILS_STREAMNAMES_H

#include <string_view>

namespace utils
{
// By kind, in the order of eReadWriteType; that enumeration's names without the leading e, first letter small.
inline constexpr const char* cStreamNames[] = {
    "imageStream",     "imageCtrl",       "imageState",      "arpaStream", "arpaCtrl",   "arpaState",
    "originalImage",   "aisDev",          "gpsDev",          "depthDev",   "headingDev", "secondArpaStream",
    "cameraCtrl",      "cameraState",     "arpaSeverCtrl",  // spelled as the enumeration spells it
    "arpaServerState", "radarClientCtrl", "radarClientState"};
inline constexpr unsigned int cStreamKinds = sizeof cStreamNames / sizeof cStreamNames[0];
static_assert(cStreamKinds == 18);

// Null for a number that is no kind.
constexpr const char* streamName(unsigned int kind)
{
    return kind < cStreamKinds ? cStreamNames[kind] : nullptr;
}

// -1 for a name that is none.
constexpr int streamKind(std::string_view name)
{
    for (unsigned int kind = 0; kind < cStreamKinds; ++kind)
    {
        if (name == cStreamNames[kind])
            return static_cast<int>(kind);
    }
    return -1;
}
}  // namespace utils

#endif
