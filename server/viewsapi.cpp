#include "server/viewsapi.h"

#include <algorithm>
#include <deque>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/packagecontents.h"
#include "KestovaRecordings/recordinglist.h"
#include "KestovaUtils/timeparser.h"
#include "server/answers.h"
#include "server/layouts.h"
#include "server/recordwalk.h"
#include "sessions/picture/picturesession.h"
#include "sessions/report/decodedlines.h"
#include "sessions/report/payloadtext.h"
#include "sessions/report/recordrow.h"

namespace server
{
using namespace recordings;

namespace
{
constexpr std::uint64_t cLatestMs = std::uint64_t(1) << 48;
constexpr std::uint64_t cLookBackMs = 600'000;  // for pictures: no antenna turns slower
constexpr std::size_t cMostLookedAt = 200'000;  // for the last records of a stream
constexpr std::size_t cMessageShown = 4096;     // bytes

struct tHeld
{
    std::uint64_t timeMs;
    std::string bytes, file;
};

// The records up to a time, the last one first found.
std::deque<tHeld> recordsUpTo(tRecordWalk& walk, std::uint64_t atMs, const std::string& stream, std::size_t limit)
{
    std::deque<tHeld> found;
    walk.seek(atMs + 1);
    tWalked record;
    for (std::size_t looked = 0; found.size() < limit && looked < cMostLookedAt && walk.previous(record); ++looked)
    {
        const std::string name = session::keyOf(viewPackage(record.bytes)).name();
        if (stream.empty() || name == stream)
            found.push_front({record.timeMs, std::string(record.bytes), walk.file()});
    }
    return found;
}

std::vector<std::string> filesNear(const std::string& folder, std::uint64_t atMs)
{
    std::vector<std::string> files;
    for (const tListedFile& file : listDataFiles(folder))
        if (file.records != 0 && file.firstMs <= atMs && file.lastMs + cLookBackMs >= atMs)
            files.push_back(file.path);
    return files;
}
}  // namespace

void tViewsApi::addTo(tRoutes& routes)
{
    routes.add("GET", "/api/v1/recordings/*/picture.png", [this](const tCall& call) { return picture(call); });
    routes.add("GET", "/api/v1/recordings/*/records", [this](const tCall& call) { return records(call); });
}

tHttpAnswer tViewsApi::picture(const tCall& call)
{
    const tArchived found = m_archive.find(call.parts[0]);
    const std::uint64_t lastMs = found.recording.lastMs;
    const std::uint64_t atMs = std::min(call.target.number("at_ms", 0, cLatestMs).value_or(lastMs), lastMs);
    session::tPictureJob job;
    job.name = found.recording.name;
    job.files = filesNear(found.recording.path, atMs);
    job.northUp = call.target.flag("north_up");
    job.picture.size = call.target.number("size", 64, 2048).value_or(900);
    job.picture.rangeM = call.target.decimal("range_m", 0, 1e6).value_or(0);
    job.timeText = [](std::uint64_t ms) { return utils::time::tTimeParser::Time_ms2String(ms); };
    if (!job.files.empty())
        job.layouts = layoutsOfFile(m_options, job.files.back());
    if (job.layouts.empty())
        throw tRefusal(404, "no_spokes", "nothing says how the spokes are laid out", "start the server with --layout");
    tHttpAnswer answer;
    try
    {
        answer.body = session::tPictureSession(job).pngOfMoment(atMs);
    }
    catch (const tFailure& failure)
    {
        throw tRefusal(404, "no_spokes", failure.what());
    }
    answer.headers = {{"Content-Type", "image/png"}, {"Cache-Control", "no-store"}};
    return answer;
}

tHttpAnswer tViewsApi::records(const tCall& call)
{
    const std::string folder = m_archive.folderOf(call.parts[0]);
    tRecordWalk walk(folder);
    const std::uint64_t atMs = call.target.number("at_ms", 0, cLatestMs).value_or(walk.lastMs());
    const std::size_t limit = call.target.number("limit", 1, 100).value_or(20);
    const auto found = recordsUpTo(walk, atMs, call.target.text("stream"), limit);
    tJson rows = tJson::array();
    session::tDecodedLines lines(layoutsOfFile(m_options, walk.fileAt(atMs)), [&](session::tDecodedLine&& line) {
        rows.push_back(session::decodedJson(std::move(line)));
    });
    for (const tHeld& record : found)
    {
        const auto package = viewPackage(record.bytes);
        const std::string_view message = package ? package->payload : std::string_view(record.bytes);
        session::tDecodedLine line;
        line.json = {{"schema", "kestova/dump/2"}, {"file", std::filesystem::path(record.file).filename().string()}};
        session::putRecord(line.json,
                           {record.timeMs, package, message, cMessageShown, session::holdsSentence(message)});
        lines.add(session::keyOf(package), message, record.timeMs, std::move(line));
    }
    lines.finish();
    return jsonAnswer({{"records", std::move(rows)}});
}
}  // namespace server
