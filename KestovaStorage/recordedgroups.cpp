#include "KestovaStorage/recordedgroups.h"

#include "KestovaStorage/internal/radar/radarstreams.h"

namespace Kestova
{
std::vector<tRecordedGroup> recordedGroups(const RadarAddress& radar)
{
    std::vector<eReadWriteType> kinds;
    for (unsigned kind = 0; kind < eTotalReadWriteTypes; ++kind)
        kinds.push_back(static_cast<eReadWriteType>(kind));
    std::vector<tRecordedGroup> groups;
    for (const tRadarGroup& group : radarGroups(radar, kinds))
        groups.push_back({group.address, group.msgInfo});
    return groups;
}
}  // namespace Kestova
