#include "KestovaUtils/streamnames.h"

#include <iterator>

namespace utils
{
namespace
{
// The enumerators without the leading e, first letter small.
constexpr const char* cStreamNames[] = {
    "imageStream",     "imageCtrl",       "imageState",      "arpaStream", "arpaCtrl",   "arpaState",
    "originalImage",   "aisDev",          "gpsDev",          "depthDev",   "headingDev", "secondArpaStream",
    "cameraCtrl",      "cameraState",     "arpaSeverCtrl",  // spelled as the enumerator
    "arpaServerState", "radarClientCtrl", "radarClientState"};
static_assert(std::size(cStreamNames) == cStreamKinds);

// Kinds without an address of a radar's own.
struct tSharedKind
{
    unsigned int kind;
    const char* name;
};
constexpr tSharedKind cSharedKinds[] = {{254, "radarCheck"}, {255, "otherType"}};

constexpr const char* cMessageNames[] = {"identify",          "radarMultiNums", "multiRadarNegotiate",
                                         "multiRadarService", "readType",       "writeType",
                                         "dediReadType",      "dediWriteType",  "radarClientType"};
}  // namespace

const char* streamName(unsigned int kind)
{
    if (kind < cStreamKinds)
        return cStreamNames[kind];
    for (const tSharedKind& shared : cSharedKinds)
    {
        if (shared.kind == kind)
            return shared.name;
    }
    return nullptr;
}

int streamKind(const std::string& name)
{
    for (unsigned int kind = 0; kind < cStreamKindLimit; ++kind)
    {
        const char* const known = streamName(kind);
        if (known != nullptr && name == known)
            return static_cast<int>(kind);
    }
    return -1;
}

const char* messageName(unsigned int type)
{
    return type < std::size(cMessageNames) ? cMessageNames[type] : nullptr;
}
}  // namespace utils
