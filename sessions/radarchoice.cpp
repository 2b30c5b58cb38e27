#include "sessions/radarchoice.h"

#include <fmt/format.h>

#include "KestovaRecordings/failure.h"

namespace session
{
using namespace recordings;

const RadarAddress& tRadarChoice::find() const
{
    MultiRadarClient& client = *MultiRadarClient::getInstance();
    std::string error;
    if (!client.loadDirectory(directory, &error))
        throw tFailure(error);
    const RadarAddress* found = client.getAddress(serial.c_str(), id);
    if (found == nullptr)
        throw tFailure(fmt::format("{} has no radar {} with id {}: compare --radar and --id with its entries",
                                   directory, serial, id));
    return *found;
}
}  // namespace session
