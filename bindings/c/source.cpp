#include "bindings/c/source.h"

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "KestovaRecordings/archive.h"
#include "KestovaRecordings/groupaddress.h"
#include "KestovaRecordings/sheet.h"
#include "KestovaRecordings/timerange.h"
#include "KestovaStorage/companions.h"
#include "KestovaStorage/recordedgroups.h"
#include "KestovaUtils/multiradarclient.h"
#include "UdpSocket/udpsocket.h"
#include "bindings/c/guard.h"
#include "bindings/c/options.h"
#include "bindings/c/quiet.h"
#include "sessions/localaddress.h"
#include "sessions/record/recordingchecks.h"

namespace binding
{
using namespace recordings;

namespace
{
constexpr char cLiveScheme[] = "udp://";

tGroup groupOf(const NetAddress& address)
{
    return {address.ip, net::NtoHs(address.port)};
}

void addLayouts(const std::string& text, const std::string& where, std::vector<utils::tSpokeLayout>& layouts)
{
    std::vector<utils::tSpokeLayout> more;
    std::string error;
    if (!utils::parseSpokeLayouts(text, more, error))
        throw tError(KESTOVA_ARGUMENT, where + ": " + error);
    layouts.insert(layouts.end(), more.begin(), more.end());
}

std::string radarName(const tSheet& sheet)
{
    return sheet.radarSerial + "/" + std::to_string(sheet.radarId);
}

// Returns the groups on which the radar of a sheet sends spokes.
void addSpokeGroups(const tSheet& sheet, std::set<tGroup>& groups)
{
    for (const char* stream : {"imageStream", "originalImage"})
        if (const auto address = sheet.radarAddresses.find(stream); address != sheet.radarAddresses.end())
            groups.insert(groupOf(parseGroup(address->second)));
}
}  // namespace

struct tSource::tOptions
{
    std::string radars, localIp;
};

tSource::tSource(const std::string& source, const char* text) : m_path(source)
{
    silenceConsole();
    const tJson json = optionsOf(text, {"layout", "radars", "local_ip"});
    const tOptions options{textOf(json, "radars"), textOf(json, "local_ip")};
    if (!options.radars.empty())
        readDirectory(options.radars);
    if (json.contains("layout"))
        m_layoutTexts = {layoutTextOf(json["layout"])};
    if (source.starts_with(cLiveScheme))
        openGroup(source.substr(sizeof cLiveScheme - 1), options);
    else
        openFiles();
    if (!m_layoutTexts.empty())
        layouts();
}

void tSource::openFiles()
{
    std::error_code ignored;
    if (!std::filesystem::exists(m_path, ignored))
        throw tError(KESTOVA_NOT_FOUND, m_path + ": there is no such file or folder");
    const tFoundFiles found = findAllRecordings({m_path}, cSuffix);
    if (found.files.empty())
        throw tError(KESTOVA_NOT_FOUND, nothingLeft(found.leftOut).what());
    std::string error;
    bool isReadable = false;
    for (const std::string& path : found.files)
    {
        const tTimeRange range({path}, cSuffix);
        storage::tDataFile file;
        isReadable = isReadable || range.firstMs() != 0 || file.open(path, &error);
        if (range.firstMs() == 0)
            continue;
        m_files.push_back({path, range.firstMs(), range.lastMs()});
        m_firstMs = m_firstMs == 0 ? range.firstMs() : std::min(m_firstMs, range.firstMs());
        m_lastMs = std::max(m_lastMs, range.lastMs());
    }
    if (!isReadable)
        throw tError(KESTOVA_DAMAGED, error);
    std::ranges::stable_sort(m_files, {}, &tFile::firstMs);
}

void tSource::openGroup(const std::string& group, const tOptions& options)
{
    const std::uint32_t localIp = options.localIp.empty() ? 0 : session::localAddress(options.localIp);
    m_live = tLive{parseGroup(group), localIp, {0, 0, eReadType, eOtherType, 0}};
    session::requireJoinable({m_live->group}, localIp);
    for (const tRadarName& radar : MultiRadarClient::getInstance()->radars())
        if (const RadarAddress* const known =
                options.radars.empty() ? nullptr
                                       : MultiRadarClient::getInstance()->getAddress(radar.serial.c_str(), radar.id))
            for (const Kestova::tRecordedGroup& recorded : Kestova::recordedGroups(*known))
                if (recorded.address == m_live->group)
                    m_live->info = recorded.msgInfo;
}

void tSource::readDirectory(const std::string& path)
{
    MultiRadarClient& directory = *MultiRadarClient::getInstance();
    std::string error;
    if (!directory.loadDirectory(path, &error))
        throw tError(KESTOVA_ARGUMENT, error);
    for (const tRadarName& radar : directory.radars())
    {
        const std::string layout = directory.spokeLayout(radar.serial.c_str(), radar.id);
        if (!layout.empty() && std::ranges::find(m_layoutTexts, layout) == m_layoutTexts.end())
            m_layoutTexts.push_back(layout);
    }
}

std::vector<std::vector<std::string>> tSource::filesIn(const tSpan& span) const
{
    std::vector<std::vector<std::string>> together;
    std::uint64_t lastMs = 0;
    for (const tFile& file : m_files)
    {
        if (static_cast<std::int64_t>(file.lastMs) < span.startMs ||
            static_cast<std::int64_t>(file.firstMs) >= span.endMs)
            continue;
        if (together.empty() || file.firstMs >= lastMs)
            together.emplace_back();
        together.back().push_back(file.path);
        lastMs = std::max(lastMs, file.lastMs);
    }
    return together;
}

const std::vector<utils::tSpokeLayout>& tSource::layouts()
{
    if (!m_layouts)
    {
        m_layouts.emplace();
        for (const std::string& text : m_layoutTexts)
            addLayouts(text, "layout", *m_layouts);
        if (m_layouts->empty())
            readSheets();
    }
    if (m_layouts->empty())
        throw tError(KESTOVA_NO_SPOKES, m_path + ": no sheet says how the spokes are laid out: give a layout");
    return *m_layouts;
}

// Each layout once, in the order of the files.
void tSource::readSheets()
{
    std::set<std::string> known;
    for (const tFile& file : m_files)
    {
        const tFoundSheet found = readSheet(file.path);
        if (found && !found.sheet.spokeLayout.empty() && known.insert(found.sheet.spokeLayout).second)
            addLayouts(found.sheet.spokeLayout, storage::sheetName(file.path), *m_layouts);
    }
}

std::set<tGroup> tSource::groupsOf(const std::string& radar) const
{
    std::set<tGroup> groups;
    for (const tFile& file : m_files)
        if (const tFoundSheet found = readSheet(file.path); found && radarName(found.sheet) == radar)
            addSpokeGroups(found.sheet, groups);
    if (!groups.empty())
        return groups;
    try
    {
        return {groupOf(parseGroup(radar))};
    }
    catch (const std::invalid_argument&)
    {
        throw tError(KESTOVA_NOT_FOUND, m_path + ": no sheet knows a radar \"" + radar + "\" with spokes");
    }
}
}  // namespace binding
