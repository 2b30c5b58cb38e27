#include "KestovaRecordings/packagecontents.h"

#include "KestovaStorage/packageview.h"

namespace recordings
{
std::optional<tPackageContents> viewPackage(std::string_view segment)
{
    const tRadarMsgPackage* const package = asWholePackage(segment.data(), segment.size());
    if (package == nullptr)
        return std::nullopt;
    return tPackageContents{package->msgInfo, package->packCnt,      package->udpAddr,
                            package->udpPort, package->timestamp_ms, segment.substr(cPackageHeadSize, package->msgLen)};
}
}  // namespace recordings
