#include "server/recordingsapi.h"

#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>

#include "KestovaRecordings/activity.h"
#include "server/timeline.h"
#include "sessions/report/listrow.h"

namespace server
{
using namespace recordings;

namespace
{
using tSteady = std::chrono::steady_clock;

constexpr std::uint64_t cLatestMs = std::uint64_t(1) << 48;
constexpr std::chrono::milliseconds cFirstShape{700};

std::string lower(std::string text)
{
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

struct tSums
{
    std::map<tStreamKey, tStreamFacts> streams;
    tSheetLosses losses;
    std::vector<tNote> notes;
    tActivity activity;
};

void addStream(const tStreamFacts& from, tSums& sums)
{
    tStreamFacts& to = sums.streams.try_emplace(from.key, tStreamFacts{from.key, 0, 0, 0, 0, {}, {}, {}}).first->second;
    if (to.messages != 0 && from.firstMs >= to.lastMs + cSheetGapMs)
        to.gaps.push_back({to.lastMs, from.firstMs});
    to.firstMs = to.messages == 0 ? from.firstMs : std::min(to.firstMs, from.firstMs);
    to.lastMs = std::max(to.lastMs, from.lastMs);
    to.messages += from.messages;
    to.bytes += from.bytes;
    to.gaps.insert(to.gaps.end(), from.gaps.begin(), from.gaps.end());
    if (from.missingOnWire)
        to.missingOnWire = to.missingOnWire.value_or(0) + *from.missingOnWire;
}

void addFile(const tFileFacts& file, tSums& sums)
{
    for (const tStreamFacts& stream : file.streams)
        addStream(stream, sums);
    tSheetLosses& losses = sums.losses;
    losses.kernelDropped += file.losses.kernelDropped;
    losses.queueLost += file.losses.queueLost;
    losses.diskLost += file.losses.diskLost;
    losses.joinsLost.insert(losses.joinsLost.end(), file.losses.joinsLost.begin(), file.losses.joinsLost.end());
    if (file.losses.missingOnWire)
        losses.missingOnWire = losses.missingOnWire.value_or(0) + *file.losses.missingOnWire;
    sums.notes.insert(sums.notes.end(), file.notes.begin(), file.notes.end());
    // What lies between the silences is a stretch of records.
    std::uint64_t fromMs = file.firstMs;
    for (const tGap& silence : file.silences)
    {
        sums.activity.add(tGap{fromMs, silence.fromMs});
        fromMs = silence.toMs;
    }
    if (file.firstMs != 0)
        sums.activity.add(tGap{fromMs, file.lastMs});
}

tJson streamsJson(const tSums& sums)
{
    tJson rows = tJson::array();
    for (const auto& [key, stream] : sums.streams)
    {
        const double seconds = static_cast<double>(stream.lastMs - stream.firstMs) / 1000;
        const auto rate = [seconds, &stream = stream](std::uint64_t count) {
            return seconds > 0 && stream.messages > 1 ? static_cast<double>(count) / seconds : 0.0;
        };
        tJson row = {{"stream", key.name()},
                     {"address", key.address()},
                     {"records", stream.messages},
                     {"bytes", stream.bytes},
                     {"first_ms", stream.firstMs},
                     {"last_ms", stream.lastMs},
                     {"records_per_second", rate(stream.messages - 1)},
                     {"bytes_per_second", rate(stream.bytes)},
                     {"gaps", session::gapsJson(stream.gaps)}};
        if (stream.missingOnWire)
            row["missing_on_wire"] = *stream.missingOnWire;
        rows.push_back(std::move(row));
    }
    return rows;
}

tJson filesJson(const std::vector<tFileFactsPtr>& files)
{
    tJson rows = tJson::array();
    for (const tFileFactsPtr& file : files)
        rows.push_back({{"n", rows.size()},
                        {"name", file->name},
                        {"size_bytes", file->sizeBytes},
                        {"first_ms", file->firstMs},
                        {"last_ms", file->lastMs}});
    return rows;
}

// Returns the span that a request asks for, that of the files where it names none.
tTimelineSpan spanOf(const tTarget& target, const std::vector<tTimelineRecording>& recordings)
{
    std::uint64_t firstMs = cLatestMs, lastMs = 0;
    for (const tTimelineRecording& recording : recordings)
        for (const tFileFactsPtr& file : recording.files)
            if (file->firstMs != 0)
            {
                firstMs = std::min(firstMs, file->firstMs);
                lastMs = std::max(lastMs, file->lastMs);
            }
    tTimelineSpan span{};
    span.fromMs = target.number("from_ms", 0, cLatestMs).value_or(lastMs == 0 ? 0 : firstMs);
    span.toMs = target.number("to_ms", 0, cLatestMs).value_or(std::max(lastMs, span.fromMs) + 1);
    span.columns = target.number("columns", 1, 4096).value_or(512);
    if (span.toMs <= span.fromMs)
        throw tRefusal(400, "bad_value", "to_ms is not behind from_ms");
    return span;
}
}  // namespace

tJson recordingRow(const tArchived& one)
{
    tJson row = {{"id", one.id}}, listed = session::listRow(one.recording);
    for (auto& [key, value] : listed.items())
        if (key != "path")
            row[key] = std::move(value);
    return row;
}

void tRecordingsApi::addTo(tRoutes& routes)
{
    routes.add("GET", "/api/v1/recordings", [this](const tCall& call) { return list(call); });
    routes.add("GET", "/api/v1/recordings/*", [this](const tCall& call) { return one(call); });
    routes.add("GET", "/api/v1/recordings/*/timeline", [this](const tCall& call) { return timelineOf(call); });
    routes.add("GET", "/api/v1/timeline", [this](const tCall& call) { return timeline(call); });
}

// In its name, its radar or its notes.
bool tRecordingsApi::matches(const tArchived& one, const std::string& text)
{
    if (lower(one.recording.name).find(text) != std::string::npos ||
        lower(one.recording.radar).find(text) != std::string::npos)
        return true;
    if (one.recording.notes == 0)
        return false;
    for (const tFileFactsPtr& file : m_facts.of(one.recording.path).files)
        for (const tNote& note : file->notes)
            if (lower(note.text).find(text) != std::string::npos)
                return true;
    return false;
}

tHttpAnswer tRecordingsApi::list(const tCall& call)
{
    const tTarget& target = call.target;
    const std::uint64_t sinceMs = target.number("since_ms", 0, cLatestMs).value_or(0);
    const std::uint64_t untilMs = target.number("until_ms", 0, cLatestMs).value_or(cLatestMs);
    const std::size_t limit = target.number("limit", 1, 1000).value_or(100);
    const std::string radar = target.text("radar"), text = lower(target.text("q")), after = target.text("after");
    const std::string serial = radar.substr(0, radar.find('/'));
    const tArchiveList all = m_archive.list();
    auto at = all->begin();
    if (!after.empty())
    {
        at = std::ranges::find(*all, after, &tArchived::id);
        at = at == all->end() ? all->begin() : at + 1;
    }
    tJson rows = tJson::array(), next;
    for (; at != all->end(); ++at)
    {
        const tListedRecording& one = at->recording;
        if (one.lastMs < sinceMs || one.firstMs >= untilMs || (!serial.empty() && one.radar != serial) ||
            (!text.empty() && !matches(*at, text)))
            continue;
        if (rows.size() == limit)
        {
            next = rows.back()["id"];
            break;
        }
        rows.push_back(recordingRow(*at));
    }
    return jsonAnswer({{"recordings", std::move(rows)}, {"next", std::move(next)}});
}

tHttpAnswer tRecordingsApi::one(const tCall& call)
{
    const tArchived found = m_archive.find(call.parts[0]);
    const auto files = m_facts.of(found.recording.path).files;
    tSums sums;
    for (const tFileFactsPtr& file : files)
        addFile(*file, sums);
    tJson row = recordingRow(found);
    row["streams"] = streamsJson(sums);
    row["gaps"] = session::gapsJson(sums.activity.silences());
    row["losses"] = session::lossesJson(sums.losses);
    if (sums.losses.missingOnWire)
        row["losses"]["missing_on_wire"] = *sums.losses.missingOnWire;
    row["notes"] = session::notesJson(sums.notes);
    row["files"] = filesJson(files);
    return jsonAnswer(row);
}

tHttpAnswer tRecordingsApi::timelineOf(const tCall& call)
{
    auto facts = m_facts.of(m_archive.folderOf(call.parts[0]), tSteady::now() + cFirstShape);
    const std::vector<tTimelineRecording> recordings{{call.parts[0], std::move(facts.files)}};
    tJson json = timelineJson(recordings, spanOf(call.target, recordings), m_facts);
    json["complete"] = facts.isWhole;
    return jsonAnswer(json);
}

tHttpAnswer tRecordingsApi::timeline(const tCall& call)
{
    const tTarget& target = call.target;
    const std::uint64_t fromMs = target.number("from_ms", 0, cLatestMs).value_or(0);
    const std::uint64_t toMs = target.number("to_ms", 0, cLatestMs).value_or(cLatestMs);
    const auto deadline = tSteady::now() + cFirstShape;
    bool isWhole = true;
    std::vector<tTimelineRecording> recordings;
    for (const tArchived& one : *m_archive.list())
    {
        if (one.recording.firstMs >= toMs || one.recording.lastMs < fromMs)
            continue;
        auto facts = m_facts.of(one.recording.path, deadline);
        isWhole &= facts.isWhole;
        recordings.push_back({one.id, std::move(facts.files)});
    }
    tJson json = timelineJson(recordings, spanOf(target, recordings), m_facts);
    json["complete"] = isWhole;
    return jsonAnswer(json);
}
}  // namespace server
