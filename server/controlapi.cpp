#include "server/controlapi.h"

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/noteplace.h"
#include "KestovaRecordings/sheet.h"
#include "KestovaRecordings/streamchoice.h"
#include "server/answers.h"
#include "server/recorderprocess.h"
#include "server/recordingsapi.h"
#include "sessions/keeping.h"

namespace server
{
using namespace recordings;

namespace
{
constexpr double cUsualRate = 1e6;  // bytes a second of a radar that was never recorded
constexpr double cHourS = 3600, cLeastSeconds = 10;
constexpr std::size_t cLongestNote = 4096;

double rateOf(const tListedRecording& one)
{
    const double seconds = static_cast<double>(one.lastMs - one.firstMs) / 1000;
    return seconds < cLeastSeconds ? 0 : static_cast<double>(one.sizeBytes) / seconds;
}

void requireText(const std::string& text)
{
    const bool isClean = std::ranges::none_of(text, [](unsigned char c) { return c < 0x20 && c != '\n' && c != '\t'; });
    if (text.empty() || text.size() > cLongestNote || !isClean)
        throw tRefusal(400, "bad_value", "a note is a text of 1 to 4096 bytes");
}
}  // namespace

double writtenPerSecond(const tArchiveList& list, const std::string& root)
{
    double sum = 0;
    for (const tArchived& one : *list)
        if (one.recording.state == eRecordingState::eRecording && one.recording.path.starts_with(root))
            sum += rateOf(one.recording);
    return sum;
}

std::uint64_t freeBytes(const std::string& root)
{
    std::error_code error;
    const auto space = std::filesystem::space(root, error);
    return error ? 0 : space.available;
}

void tControlApi::addTo(tRoutes& routes)
{
    routes.add("POST", "/api/v1/radars/*/*/record", [this](const tCall& call) { return record(call); });
    routes.add("POST", "/api/v1/recordings/*/stop", [this](const tCall& call) { return stop(call); });
    routes.add("POST", "/api/v1/recordings/*/note", [this](const tCall& call) { return note(call); });
    routes.add("POST", "/api/v1/recordings/*/keep", [this](const tCall& call) { return keep(call); });
}

void tControlApi::requireAllowed() const
{
    if (!m_options.allowRecord)
        throw tRefusal(403, "not_allowed", "this server changes no recordings", "start it with --allow-record");
}

tHttpAnswer tControlApi::rowOf(const std::string& id)
{
    m_archive.forget();
    return jsonAnswer(recordingRow(m_archive.find(id)));
}

// An hour, at the rate of the radar's newest recording.
void tControlApi::requireRoom(const tRadarName& radar)
{
    double rate = 0;
    const tArchiveList list = m_archive.list();
    for (const tArchived& one : *list)
        if (rate == 0 && one.recording.radar == radar.serial)
            rate = rateOf(one.recording);
    const std::string& root = m_options.roots.front();
    const double wanted = (rate == 0 ? cUsualRate : rate) + writtenPerSecond(list, root);
    if (static_cast<double>(freeBytes(root)) < wanted * cHourS)
        throw tRefusal(507, "no_room", "the disk has no room for an hour of recording",
                       "make room, or use another root");
}

std::vector<std::string> tControlApi::commandLine(const tRadarName& radar, const tHttpRequest& request) const
{
    const tJson body = bodyOf(request);
    std::vector<std::string> line{m_options.program,
                                  "record",
                                  "--radars",
                                  m_options.radars,
                                  "--radar",
                                  radar.serial,
                                  "--id",
                                  std::to_string(radar.id),
                                  "--root",
                                  m_options.roots.front()};
    const auto add = [&](const std::string& option, const std::string& value) {
        line.push_back(option);
        line.push_back(value);
    };
    if (!m_options.localIp.empty())
        add("--local-ip", m_options.localIp);
    if (!m_options.layoutFile.empty())
        add("--layout", m_options.layoutFile);
    if (body.contains("streams") && !body["streams"].is_null())
    {
        const tJson& streams = body["streams"];
        if (!streams.is_array() || streams.empty())
            throw tRefusal(400, "bad_value", "streams is no list of names");
        for (const tJson& stream : streams)
        {
            if (!stream.is_string())
                throw tRefusal(400, "bad_value", "streams is no list of names");
            parseStreams({stream.get<std::string>()});
            add("--streams", stream.get<std::string>());
        }
    }
    if (body.contains("compress") && flagIn(body, "compress"))
        line.push_back("--compress");
    if (const auto durationMs = optionalNumberIn(body, "duration_ms"))
        add("--duration", std::to_string(std::max<std::uint64_t>(*durationMs, 1)) + "ms");
    return line;
}

tHttpAnswer tControlApi::record(const tCall& call)
try
{
    requireAllowed();
    const tRadarName radar = m_radars.find(call.parts[0] + '/' + call.parts[1]);
    const std::vector<std::string> line = commandLine(radar, call.request);
    const std::lock_guard lock(m_mutex);
    reapRecorders();
    m_archive.forget();
    if (m_radars.recordingOf(radar))
        throw tRefusal(409, "is_recorded", "this radar is being recorded");
    requireRoom(radar);
    const std::string folder = startRecorder(line);
    m_archive.forget();
    return jsonAnswer({{"id", tArchive::idOf(folder)}}, 201);
}
catch (const std::invalid_argument& error)
{
    throw tRefusal(400, "bad_value", error.what());
}

tHttpAnswer tControlApi::stop(const tCall& call)
{
    requireAllowed();
    bodyOf(call.request);
    for (const tListedFile& file : listDataFiles(m_archive.folderOf(call.parts[0])))
        if (file.state == eRecordingState::eRecording)
        {
            try
            {
                stopRecorder(file.path);
            }
            catch (const tFailure& failure)
            {
                throw tRefusal(409, "not_ended", failure.what());
            }
            reapRecorders();
            return rowOf(call.parts[0]);
        }
    throw tRefusal(409, "not_recorded", "this recording has ended already");
}

tHttpAnswer tControlApi::note(const tCall& call)
{
    requireAllowed();
    const tJson body = bodyOf(call.request);
    const std::string text = textIn(body, "text");
    requireText(text);
    std::optional<tMoment> at;
    if (const auto atMs = optionalNumberIn(body, "at_ms"))
        at = tMoment{tMoment::eAbsolute, static_cast<double>(*atMs)};
    const std::string folder = m_archive.folderOf(call.parts[0]);
    try
    {
        tNotePlace place = findNotePlace(folder, at);
        place.file = presentForm(place.file, {}, ".data").value_or(place.file);
        addNote(place.file, {place.timeMs, text});
    }
    catch (const tFailure& failure)
    {
        throw tRefusal(409, "not_noted", failure.what());
    }
    return rowOf(call.parts[0]);
}

tHttpAnswer tControlApi::keep(const tCall& call)
{
    requireAllowed();
    const bool isKept = flagIn(bodyOf(call.request), "kept");
    try
    {
        session::tKeeping(isKept, ".data").mark(findAllRecordings({m_archive.folderOf(call.parts[0])}, ".data"));
    }
    catch (const tFailure& failure)
    {
        throw tRefusal(409, "not_kept", failure.what());
    }
    return rowOf(call.parts[0]);
}
}  // namespace server
