#include "server/radars.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/sheet.h"
#include "server/answers.h"

namespace server
{
using namespace recordings;

tRadars::tRadars(const tServeOptions& options, tArchive& archive) : m_archive(archive)
{
    if (options.radars.empty())
        return;
    MultiRadarClient& directory = *MultiRadarClient::getInstance();
    std::string error;
    if (!directory.loadDirectory(options.radars, &error))
        throw tFailure(error);
    m_names = directory.radars();
}

void tRadars::addTo(tRoutes& routes)
{
    routes.add("GET", "/api/v1/radars", [this](const tCall&) { return list(); });
}

tRadarName tRadars::find(const std::string& radar) const
{
    const auto found = std::ranges::find(m_names, radar, &tRadars::textOf);
    if (found == m_names.end())
        throw tRefusal(404, "no_radar", "there is no such radar");
    return *found;
}

// The list knows serial numbers; which of a radar's several it is, its sheets say.
std::optional<tArchived> tRadars::recordingOf(const tRadarName& radar)
{
    for (const tArchived& one : *m_archive.list())
    {
        if (one.recording.state != eRecordingState::eRecording)
            continue;
        for (const tListedFile& file : listDataFiles(one.recording.path))
            if (file.state == eRecordingState::eRecording)
            {
                const tFoundSheet found = readSheet(file.path);
                if (found && found.sheet.radarSerial == radar.serial && found.sheet.radarId == radar.id)
                    return one;
            }
    }
    return std::nullopt;
}

void tRadars::hear(const tRadarName& radar, std::uint64_t nowMs)
{
    const std::lock_guard lock(m_mutex);
    m_heardMs[textOf(radar)] = nowMs;
}

tHttpAnswer tRadars::list()
{
    tJson rows = tJson::array();
    for (const tRadarName& radar : m_names)
    {
        const auto recording = recordingOf(radar);
        std::uint64_t heardMs = recording ? recording->recording.lastMs : 0;
        {
            const std::lock_guard lock(m_mutex);
            if (const auto known = m_heardMs.find(textOf(radar)); known != m_heardMs.end())
                heardMs = std::max(heardMs, known->second);
        }
        rows.push_back({{"radar", textOf(radar)},
                        {"serial", radar.serial},
                        {"id", radar.id},
                        {"heard_ms", heardMs == 0 ? tJson() : tJson(heardMs)},
                        {"recording", recording ? tJson(recording->id) : tJson()}});
    }
    return jsonAnswer({{"radars", std::move(rows)}});
}
}  // namespace server
