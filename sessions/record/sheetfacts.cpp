#include "sessions/record/sheetfacts.h"

#include <unistd.h>

#include "KestovaUtils/multiradarclient.h"
#include "KestovaUtils/streamnames.h"
#include "UdpSocket/udpsocket.h"
#include "sessions/record/recordsession.h"

namespace session
{
using namespace recordings;

namespace
{
tSheet factsOf(const char* source)
{
    char host[256] = {};
    ::gethostname(host, sizeof host - 1);
    tSheet sheet;
    sheet.recorderVersion = KESTOVA_VERSION;
    sheet.recorderHost = host;
    sheet.clock.source = source;
    return sheet;
}
}  // namespace

tSheet sheetFacts(const tRecordOptions& options)
{
    tSheet sheet = factsOf("system");
    sheet.spokeLayout = options.spokeLayout;
    if (!options.groups.empty())
        return sheet;
    sheet.radarSerial = options.radar.serial;
    sheet.radarId = options.radar.id;
    const RadarAddress& radar = options.radar.find();
    if (sheet.spokeLayout.empty())
        sheet.spokeLayout =
            MultiRadarClient::getInstance()->spokeLayout(options.radar.serial.c_str(), options.radar.id);
    for (unsigned int kind = 0; kind < utils::cStreamKinds; ++kind)
    {
        const NetAddress group = radar.streamAddress(kind);
        const tStreamKey key = tStreamKey::of(static_cast<tReadWriteType>(kind), group.ip, net::NtoHs(group.port));
        if (group.ip != 0 && group.port != 0)
            sheet.radarAddresses[key.name()] = key.address();
    }
    return sheet;
}

tSheet importedSheetFacts()
{
    return factsOf("capture");
}

tSheet writtenSheetFacts()
{
    return factsOf("");
}
}  // namespace session
