#include "KestovaUtils/internal/radardirectory.h"

#include <algorithm>
#include <cstdint>
#include <set>
#include <utility>

#include "KestovaUtils/internal/directoryjson.h"
#include "KestovaUtils/internal/spokejson.h"
#include "KestovaUtils/streamnames.h"
#include "UdpSocket/udpsocket.h"

namespace utils
{
namespace
{
using nlohmann::json;

std::string serialOf(const json& radar)
{
    const json& value = member(radar, "serial");
    if (!value.is_string())
        throw tDirectoryError("serial is not a text");
    const auto& serial = value.get_ref<const std::string&>();
    if (serial.empty())
        throw tDirectoryError("serial is empty");
    if (serial.size() > cLongestSerial)
        throw tDirectoryError("serial is longer than " + std::to_string(cLongestSerial) + " bytes");
    if (std::any_of(serial.begin(), serial.end(),
                    [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }))
        throw tDirectoryError("serial " + shown(serial) + " has control characters");
    return serial;
}

unsigned short idOf(const json& radar)
{
    constexpr std::uint64_t cLargest = 65535;
    const json& value = member(radar, "id");
    if (!value.is_number_unsigned() || value.get<std::uint64_t>() > cLargest)
        throw tDirectoryError("id is not a whole number from 0 to 65535");
    return value.get<unsigned short>();
}

NetAddress addressIn(const json& value)
{
    if (!value.is_string())
        throw tDirectoryError("address is not a text");
    const auto& text = value.get_ref<const std::string&>();
    const std::size_t colon = text.find(':');
    if (colon == std::string::npos)
        throw tDirectoryError("address " + shown(text) + " has no port; wanted is \"ADDRESS:PORT\"");
    const NetAddress address = net::parseAddress(text);
    if (address.ip == 0)
        throw tDirectoryError("address " + shown(text) + " is no IPv4 address");
    if (address.port == 0 || text[colon + 1] == '0')
        throw tDirectoryError("address " + shown(text) + " has no port from 1 to 65535");
    return address;
}

RadarAddress recordOf(const json& streams)
{
    if (!streams.is_object())
        throw tDirectoryError("streams is not an object");
    RadarAddress record{};
    for (const auto& stream : streams.items())
    {
        const int kind = streamKind(stream.key());
        if (kind < 0 || kind >= static_cast<int>(cStreamKinds))
            throw tDirectoryError("unknown stream " + shown(stream.key()));
        try
        {
            record.setStreamAddress(static_cast<unsigned int>(kind), addressIn(stream.value()));
        }
        catch (const tDirectoryError& reason)
        {
            throw tDirectoryError(stream.key() + ": " + reason.what());
        }
    }
    return record;
}

// Returns the layout of an object's spokes as text, after it was found to be one.
std::string spokeOf(const json& object)
{
    const auto value = object.find("spoke");
    if (value == object.end())
        return {};
    spokeLayoutsIn(*value);
    return value->dump();
}

tRadarEntry radarIn(const json& radar)
{
    if (!radar.is_object())
        throw tDirectoryError("not an object");
    requireKnownKeys(radar, {"serial", "id", "streams", "spoke"});
    return {serialOf(radar), idOf(radar), recordOf(member(radar, "streams")), spokeOf(radar)};
}

using tSeen = std::set<std::pair<std::string, unsigned short>>;

tRadarEntry newRadarIn(const json& radar, tSeen& seen)
{
    tRadarEntry entry = radarIn(radar);
    if (!seen.insert({entry.serial, entry.id}).second)
        throw tDirectoryError("serial " + shown(entry.serial) + " with id " + std::to_string(entry.id) +
                              " is there already");
    return entry;
}

std::vector<tRadarEntry> radarsIn(const json& root)
{
    if (!root.is_object())
        throw tDirectoryError("the root is not an object with \"radars\"");
    requireKnownKeys(root, {"radars", "spoke"});
    const std::string spokeOfAll = spokeOf(root);
    const json& list = member(root, "radars");
    if (!list.is_array())
        throw tDirectoryError("radars is not a list");
    std::vector<tRadarEntry> radars;
    tSeen seen;
    for (const json& radar : list)
    {
        try
        {
            radars.push_back(newRadarIn(radar, seen));
            if (radars.back().spoke.empty())
                radars.back().spoke = spokeOfAll;
        }
        catch (const tDirectoryError& reason)
        {
            throw tDirectoryError("radar " + std::to_string(radars.size() + 1) + ": " + reason.what());
        }
    }
    return radars;
}

}  // namespace

bool parseRadarDirectory(const std::string& text, std::vector<tRadarEntry>& radars, std::string& error)
{
    try
    {
        radars = radarsIn(parseText(text));
        return true;
    }
    catch (const tDirectoryError& reason)
    {
        error = reason.what();
        return false;
    }
}

bool readRadarDirectory(const std::string& path, std::vector<tRadarEntry>& radars, std::string& error)
{
    std::string reason;
    try
    {
        if (parseRadarDirectory(contentOf(path), radars, reason))
            return true;
    }
    catch (const tDirectoryError& unreadable)
    {
        reason = unreadable.what();
    }
    error = path + ": " + reason;
    return false;
}
}  // namespace utils
