#include "KestovaUtils/internal/radardirectory.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "KestovaUtils/streamnames.h"
#include "UdpSocket/udpsocket.h"

namespace utils
{
namespace
{
using nlohmann::json;

// The error in a directory; this file catches it.
class tDirectoryError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// Returns a short piece of the file without control characters, for a terminal.
std::string shown(const std::string& text)
{
    constexpr std::size_t cLongest = 60;
    std::string piece = text.substr(0, cLongest);
    std::replace_if(
        piece.begin(), piece.end(), [](char c) { return c < 0x20 || c > 0x7E; }, '?');
    return '"' + piece + (text.size() > cLongest ? "...\"" : "\"");
}

std::string positionOf(const std::string& text, std::size_t byte)
{
    const std::size_t end = std::min(byte == 0 ? 0 : byte - 1, text.size());
    const std::string_view before(text.data(), end);
    const auto lines = std::count(before.begin(), before.end(), '\n');
    const std::size_t lineStart = before.rfind('\n') == std::string_view::npos ? 0 : before.rfind('\n') + 1;
    return "line " + std::to_string(lines + 1) + ", column " + std::to_string(end - lineStart + 1);
}

// Throws for errors that the parser accepts: repeated keys, of which the parser keeps the last, and nesting deeper than
// a directory's.
class tStructureCheck
{
public:
    bool operator()(int depth, json::parse_event_t event, json& parsed)
    {
        const bool opens = event == json::parse_event_t::object_start || event == json::parse_event_t::array_start;
        if (opens && depth > cDeepest)
            throw tDirectoryError(entry(depth) + "nested too deep");
        if (event == json::parse_event_t::object_start)
        {
            m_keys[depth].clear();
            m_radars += depth == cRadarDepth ? 1 : 0;
        }
        if (event == json::parse_event_t::key && !m_keys[depth - 1].insert(parsed.get_ref<const std::string&>()).second)
            throw tDirectoryError(entry(depth - 1) + "key " + shown(parsed.get_ref<const std::string&>()) +
                                  " is given twice");
        return true;
    }

private:
    static constexpr int cRadarDepth = 2;  // root, list, radar
    static constexpr int cDeepest = 4;     // streams, and one more for a value of the wrong type

    std::string entry(int depth) const
    {
        return depth < cRadarDepth || m_radars == 0 ? "" : "radar " + std::to_string(m_radars) + ": ";
    }

    std::set<std::string> m_keys[cDeepest + 1];  // of the objects that are open, by depth
    std::size_t m_radars = 0;                    // seen so far
};

json parseText(const std::string& text)
{
    try
    {
        // By reference: the parser copies its callback.
        tStructureCheck check;
        return json::parse(text, std::ref(check));
    }
    catch (const json::parse_error& wrong)
    {
        throw tDirectoryError("no valid JSON at " + positionOf(text, wrong.byte));
    }
    catch (const json::exception&)
    {
        throw tDirectoryError("no valid JSON: a number is out of range");
    }
}

void requireKnownKeys(const json& object, std::initializer_list<std::string_view> known)
{
    for (const auto& item : object.items())
    {
        if (std::find(known.begin(), known.end(), item.key()) == known.end())
            throw tDirectoryError("unknown key " + shown(item.key()));
    }
}

const json& member(const json& object, const char* key)
{
    const auto found = object.find(key);
    if (found == object.end())
        throw tDirectoryError(std::string(key) + " is missing");
    return *found;
}

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

tRadarEntry radarIn(const json& radar)
{
    if (!radar.is_object())
        throw tDirectoryError("not an object");
    requireKnownKeys(radar, {"serial", "id", "streams"});
    return {serialOf(radar), idOf(radar), recordOf(member(radar, "streams"))};
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
    requireKnownKeys(root, {"radars"});
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
        }
        catch (const tDirectoryError& reason)
        {
            throw tDirectoryError("radar " + std::to_string(radars.size() + 1) + ": " + reason.what());
        }
    }
    return radars;
}

struct tFileCloser
{
    void operator()(std::FILE* file) const { std::fclose(file); }
};

// Fails at the limit whatever size the file reports: it may grow, or be a device.
std::string contentOf(const std::string& path)
{
    const std::unique_ptr<std::FILE, tFileCloser> file(std::fopen(path.c_str(), "rbe"));
    if (!file)
        throw tDirectoryError(std::string("cannot be opened: ") + std::strerror(errno));
    std::string text;
    char piece[16384];
    while (const std::size_t got = std::fread(piece, 1, sizeof piece, file.get()))
    {
        text.append(piece, got);
        if (text.size() > cLargestDirectory)
            throw tDirectoryError("larger than " + std::to_string(cLargestDirectory) + " bytes");
    }
    if (std::ferror(file.get()) != 0)
        throw tDirectoryError(std::string("cannot be read: ") + std::strerror(errno));
    return text;
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
