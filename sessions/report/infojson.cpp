#include "sessions/report/infojson.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "sessions/report/leftoutjson.h"
#include "sessions/report/listrow.h"

namespace session
{
using namespace recordings;

std::vector<tLeftOut> ignoredSheets(const tRecordingCounts& counts)
{
    std::vector<tLeftOut> sheets;
    for (const tFileCounts& file : counts.files)
        if (!file.sheetIgnored.empty())
            sheets.push_back({file.path, file.sheetIgnored, false});
    return sheets;
}

std::size_t sheetCount(const tRecordingCounts& counts)
{
    const auto hasSheet = [](const tFileCounts& file) { return file.sheet && !file.sheet->notesOnly; };
    return static_cast<std::size_t>(std::count_if(counts.files.begin(), counts.files.end(), hasSheet));
}

namespace
{
// Numbers of messages from a second on; a negative number is that many seconds without any.
tJson perSecondJson(const tPerSecond& seconds)
{
    tJson messages = tJson::array();
    std::uint64_t next = seconds.empty() ? 0 : seconds.front().first;
    const std::uint64_t from = next;
    for (const auto& [second, count] : seconds)
    {
        if (second > next)
            messages.push_back(-static_cast<std::int64_t>(second - next));
        messages.push_back(count);
        next = second + 1;
    }
    return {{"from_s", from}, {"messages", std::move(messages)}};
}

tJson streamsOf(const tStreamHistories& streams, const tMissingCounts& missing, const std::vector<tGap>& silences,
                bool withDigest)
{
    tJson rows = tJson::array();
    for (const auto& [key, stream] : streams)
    {
        tJson row = {{"stream", key.name()},
                     {"address", key.address()},
                     {"records", stream.messages()},
                     {"bytes", stream.bytes()},
                     {"first_ms", stream.firstMs()},
                     {"last_ms", stream.lastMs()},
                     {"records_per_second", stream.messagesPerSecond(silences)},
                     {"bytes_per_second", stream.bytesPerSecond(silences)},
                     {"gaps", gapsJson(stream.gaps(silences))}};
        if (const auto known = missing.find(key); known != missing.end())
            row["missing_on_wire"] = known->second;
        if (withDigest)
            row["digest"] = stream.digest().text();
        rows.push_back(std::move(row));
    }
    return rows;
}

void addMissing(const tMissingCounts& missing, tJson& row)
{
    if (const auto sum = total(missing))
        row["missing_on_wire"] = *sum;
}

tJson clockJson(const tSheetClock& clock)
{
    tJson steps = tJson::array();
    for (const tClockStep& step : clock.steps)
        steps.push_back({{"at_ms", step.atMs}, {"step_ms", step.stepMs}});
    tJson row = {{"source", clock.source}, {"steps", std::move(steps)}};
    if (clock.offsetMs)
        row["offset_ms"] = *clock.offsetMs;
    if (clock.driftPpm)
        row["drift_ppm"] = *clock.driftPpm;
    return row;
}

// What the sheet of a file says beside its counts.
void addSheet(const tSheet& sheet, tJson& row)
{
    row["kept"] = sheet.kept;
    row["notes"] = notesJson(sheet.notes);
    if (sheet.notesOnly)
        return;
    row["losses"] = lossesJson(sheet.losses);
    row["clock"] = clockJson(sheet.clock);
    row["cut"] = sheet.cut;
    row["carried"] = sheet.carried;
    row["recorder"] = {{"version", sheet.recorderVersion}, {"host", sheet.recorderHost}};
    row["interface"] = sheet.interface;
    if (!sheet.radarSerial.empty())
        row["radar"] = {{"serial", sheet.radarSerial}, {"id", sheet.radarId}};
}

tJson fileJson(const tFileCounts& file, const std::vector<tGap>& silences, bool withDigest)
{
    tJson row = {{"path", file.path},
                 {"kind", kindName(file.kind)},
                 {"readable", file.readable},
                 {"finished", file.finished},
                 {"size", file.size},
                 {"disk_size", file.diskSize},
                 {"records", file.records},
                 {"bytes", file.bytes},
                 {"damaged", file.damaged},
                 {"first_ms", file.firstMs},
                 {"last_ms", file.lastMs},
                 {"streams", streamsOf(file.streams, file.missingOnWire, silences, withDigest)},
                 {"sheet", file.sheet.has_value()}};
    addMissing(file.missingOnWire, row);
    if (file.sheet)
        addSheet(*file.sheet, row);
    return row;
}

tJson totalJson(const tRecordingCounts& counts, bool withDigest)
{
    const tTotalCounts& totals = counts.total;
    tJson streams = streamsOf(totals.streams, totals.missingOnWire, totals.silences, withDigest);
    std::size_t place = 0;
    for (const auto& [key, stream] : totals.streams)
    {
        if (const auto seconds = totals.perSecond.find(key); seconds != totals.perSecond.end())
            streams[place]["per_second"] = perSecondJson(seconds->second);
        ++place;
    }
    bool isKept = false;
    tJson notes = tJson::array();
    for (const tFileCounts& file : counts.files)
    {
        isKept |= file.sheet && file.sheet->kept;
        for (tJson& note : file.sheet ? notesJson(file.sheet->notes) : tJson::array())
            notes.push_back(std::move(note));
    }
    tJson row = {
        {"files", counts.files.size()},      {"sheets", sheetCount(counts)}, {"kept", isKept},
        {"notes", std::move(notes)},         {"size", totals.size},          {"disk_size", totals.diskSize},
        {"records", totals.records},         {"bytes", totals.bytes},        {"damaged", totals.damaged},
        {"first_ms", totals.firstMs},        {"last_ms", totals.lastMs},     {"losses", lossesJson(totals.losses)},
        {"gaps", gapsJson(totals.silences)}, {"streams", std::move(streams)}};
    addMissing(totals.missingOnWire, row);
    return row;
}
}  // namespace

tJson infoJson(const std::vector<std::string>& paths, const tRecordingCounts& counts, bool withDigest)
{
    tJson files = tJson::array();
    for (const tFileCounts& file : counts.files)
        files.push_back(fileJson(file, counts.total.silences, withDigest));
    return {{"schema", "kestova/info/2"},
            {"paths", paths},
            {"files", std::move(files)},
            {"skipped", leftOutJson(counts.leftOut)},
            {"ignored_sheets", leftOutJson(ignoredSheets(counts))},
            {"total", totalJson(counts, withDigest)}};
}
}  // namespace session
