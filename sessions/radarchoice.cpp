#include "sessions/radarchoice.h"

#include <algorithm>
#include <fmt/format.h>
#include <vector>

#include "KestovaRecordings/failure.h"

namespace session
{
using namespace recordings;

namespace
{
// Returns "A1:2 id 1, A1:3 id 0", the first ten.
std::string listed(const std::vector<tRadarName>& radars)
{
    constexpr std::size_t cMost = 10;
    std::string text;
    for (std::size_t i = 0; i < std::min(radars.size(), cMost); ++i)
        text += fmt::format("{}{} id {}", i == 0 ? "" : ", ", radars[i].serial, radars[i].id);
    return radars.size() > cMost ? fmt::format("{} and {} more", text, radars.size() - cMost) : text;
}
}  // namespace

const RadarAddress& tRadarChoice::find() const
{
    MultiRadarClient& client = *MultiRadarClient::getInstance();
    std::string error;
    if (!client.loadDirectory(directory, &error))
        throw tFailure(error);
    const RadarAddress* found = client.getAddress(serial.c_str(), id);
    if (found != nullptr)
        return *found;
    const std::string known = listed(client.radars());
    throw tFailure(fmt::format("{} has no radar {} with id {}{}", directory, serial, id,
                               known.empty() ? ": it names no radar" : ": choose from " + known));
}
}  // namespace session
