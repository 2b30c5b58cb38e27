#include "KestovaStorage/internal/radar/radarstreams.h"

#include <algorithm>

#include "KestovaUtils/streamnames.h"

namespace Kestova
{
const std::array<tUdpSocketInfo, eTotalReadWriteTypes> RadarMsgSocketInfos{{
    {{1, 2, eReadType, eImageStream, 0}, 20480},
    {{2, 1, eWriteType, eImageCtrl, 0}, 2048},
    {{1, 2, eReadType, eImageState, 0}, 2048},
    {{1, 2, eReadType, eArpaStream, 0}, 1024},
    {{2, 1, eWriteType, eArpaCtrl, 0}, 1024},
    {{1, 2, eReadType, eArpaState, 0}, 1024},
    {{1, 2, eReadType, eOriginalImage, 0}, 20480},
    {{1, 2, eReadType, eAisDev, 0}, 2048},
    {{1, 2, eReadType, eGpsDev, 0}, 2048},
    {{1, 2, eReadType, eDepthDev, 0}, 2048},
    {{1, 2, eReadType, eHeadingDev, 0}, 2048},
    {{2, 1, eWriteType, eCameraCtrl, 0}, 1024},       // row of eSecondArpaStream
    {{1, 2, eReadType, eCameraState, 0}, 2048},       // row of eCameraCtrl
    {{2, 1, eWriteType, eArpaSeverCtrl, 0}, 1024},    // row of eCameraState
    {{1, 2, eReadType, eArpaServerState, 0}, 2048},   // row of eArpaSeverCtrl
    {{2, 1, eWriteType, eRadarClientCtrl, 0}, 1024},  // row of eArpaServerState
    {{1, 2, eReadType, eRadarClientState, 0}, 2048},  // row of eRadarClientCtrl
    {{0, 0, 0, 0, 0}, 0},                             // row of eRadarClientState
}};

static_assert(utils::cStreamKinds == eTotalReadWriteTypes, "every kind with an address has a name");

namespace
{
void addOnce(std::vector<tRadarGroup>& groups, const tRadarGroup& wanted)
{
    const bool known = std::any_of(groups.begin(), groups.end(),
                                   [&](const tRadarGroup& group) { return group.address == wanted.address; });
    if (!known)
        groups.push_back(wanted);
}
}  // namespace

const NetAddress& multiRadarServiceAddress()
{
    static const NetAddress s_group = serviceAddress(eMultiRadarServiceGroup);
    return s_group;
}

std::vector<tRadarGroup> radarGroups(const RadarAddress& radar, const std::vector<eReadWriteType>& types)
{
    std::vector<tRadarGroup> groups;
    for (const eReadWriteType type : types)
    {
        if (type >= RadarMsgSocketInfos.size())
            continue;  // such kinds have neither an address nor a row
        const NetAddress address = radar.streamAddress(type);
        const tUdpSocketInfo& row = RadarMsgSocketInfos[type];
        if (address.ip != 0 && address.port != 0)
            addOnce(groups, {address, row.msgInfo, row.recBuffSize});
    }
    for (const tServiceGroup& group : cServiceGroups)
        addOnce(groups, {serviceAddress(group), group.msgInfo, cServiceGroupBuffSize});
    return groups;
}
}  // namespace Kestova
