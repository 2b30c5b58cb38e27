#include "server/layouts.h"

#include "KestovaRecordings/missingmessages.h"
#include "KestovaRecordings/sheet.h"
#include "KestovaUtils/multiradarclient.h"

namespace server
{
tLayouts layoutsOfFile(const tServeOptions& options, const std::string& dataFile)
{
    if (!options.layouts.empty())
        return options.layouts;
    const recordings::tFoundSheet found = recordings::readSheet(dataFile);
    if (!found)
        return {};
    tLayouts layouts = recordings::spokeLayoutsOf(found.sheet);
    return layouts.empty() ? layoutsOfRadar(options, found.sheet.radarSerial, found.sheet.radarId) : layouts;
}

tLayouts layoutsOfRadar(const tServeOptions& options, const std::string& serial, unsigned short id)
{
    if (!options.layouts.empty())
        return options.layouts;
    tLayouts layouts;
    std::string error;
    const std::string text = MultiRadarClient::getInstance()->spokeLayout(serial.c_str(), id);
    if (text.empty() || !utils::parseSpokeLayouts(text, layouts, error))
        return {};
    return layouts;
}
}  // namespace server
