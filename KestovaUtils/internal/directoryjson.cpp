#include "KestovaUtils/internal/directoryjson.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <set>

namespace utils
{
using nlohmann::json;

namespace
{
struct tFileCloser
{
    void operator()(std::FILE* file) const { std::fclose(file); }
};

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
    static constexpr int cDeepest =
        7;  // a field of a field of a spoke in a list, and one more for a value of the wrong type

    std::string entry(int depth) const
    {
        return depth < cRadarDepth || m_radars == 0 ? "" : "radar " + std::to_string(m_radars) + ": ";
    }

    std::set<std::string> m_keys[cDeepest + 1];  // of the objects that are open, by depth
    std::size_t m_radars = 0;                    // seen so far
};

}  // namespace

std::string shown(const std::string& text)
{
    constexpr std::size_t cLongest = 60;
    std::string piece = text.substr(0, cLongest);
    std::replace_if(
        piece.begin(), piece.end(), [](char c) { return c < 0x20 || c > 0x7E; }, '?');
    return '"' + piece + (text.size() > cLongest ? "...\"" : "\"");
}

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
}  // namespace utils
