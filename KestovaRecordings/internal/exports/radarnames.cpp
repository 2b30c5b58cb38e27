#include "KestovaRecordings/internal/exports/radarnames.h"

#include "KestovaRecordings/internal/exports/rostypes.h"
#include "KestovaRecordings/sheet.h"

namespace recordings
{
tRadarNames::tRadarNames(const std::vector<std::string>& files)
{
    for (const std::string& file : files)
    {
        const tFoundSheet found = readSheet(file);
        if (!found || found.sheet.radarSerial.empty())
            continue;
        tRadar radar{ros::tokenOf("radar_" + found.sheet.radarSerial + "_" + std::to_string(found.sheet.radarId)), {}};
        for (const auto& [stream, address] : found.sheet.radarAddresses)
            radar.addresses.insert(address);
        m_radars.insert(std::move(radar));
    }
}

std::string tRadarNames::nameFor(const tStreamKey& stream)
{
    const std::string address = stream.address();
    for (const tRadar& radar : m_radars)
    {
        const bool isKnown = radar.addresses.empty() || radar.addresses.count(address) != 0;
        if (isKnown && m_used.insert(radar.name).second)
            return radar.name;
    }
    std::string name = ros::tokenOf("radar_" + address);
    if (!m_used.insert(name).second)  // two kinds of one group
        name = ros::tokenOf("radar_" + address + "_" + stream.name());
    m_used.insert(name);
    return name;
}
}  // namespace recordings
