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
constexpr unsigned int cRadarCheck = 254, cOtherType = 255;

constexpr const char* cMessageNames[] = {"identify",          "radarMultiNums", "multiRadarNegotiate",
                                         "multiRadarService", "readType",       "writeType",
                                         "dediReadType",      "dediWriteType",  "radarClientType"};
}  // namespace

const char* streamName(unsigned int kind)
{
    if (kind < cStreamKinds)
        return cStreamNames[kind];
    if (kind == cRadarCheck)
        return "radarCheck";
    return kind == cOtherType ? "otherType" : nullptr;
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
