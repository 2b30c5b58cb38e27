// sheetText(): small things first, so that the beginning of a sheet is enough for a list of recordings.
#include <cmath>
#include <fmt/format.h>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "KestovaRecordings/internal/base64.h"
#include "KestovaRecordings/internal/sheetformat.h"
#include "KestovaRecordings/sheet.h"
#include "KestovaStorage/datafile.h"

namespace recordings
{
namespace
{
std::string jsonOf(std::string_view text)
{
    return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

template <typename... tValues>
void put(std::string& out, fmt::format_string<tValues...> format, tValues&&... values)
{
    fmt::format_to(std::back_inserter(out), format, std::forward<tValues>(values)...);
}

// Puts the elements, separated by commas, between the brackets.
template <typename tElements, typename tPut>
void putArray(std::string& out, const tElements& elements, tPut putOne)
{
    out += '[';
    for (const auto& one : elements)
    {
        putOne(one);
        out += ',';
    }
    if (out.back() == ',')
        out.pop_back();
    out += ']';
}

void putGaps(std::string& out, const std::vector<tGap>& gaps)
{
    putArray(out, gaps, [&](const tGap& gap) { put(out, R"({{"from_ms":{},"to_ms":{}}})", gap.fromMs, gap.toMs); });
}

void putBeginning(std::string& out, const tSheet& sheet)
{
    put(out, R"({{"schema":"{}","kept":{},"notes_count":{},"lost":{},)", cSheetSchema, sheet.kept, sheet.notes.size(),
        sheet.losses.sum());
    put(out, R"("records":{},"bytes":{},"first_ms":{},"last_ms":{},)", sheet.records, sheet.bytes, sheet.firstMs,
        sheet.lastMs);
    if (!sheet.id.empty())
        put(out, R"("id":{},)", jsonOf(sheet.id));
    put(out, R"("form":"{}",)", storage::fileFormName(sheet.form));
    if (sheet.first)
        put(out, R"("first":{{"time_ms":{},"position":{},"length":{}}},)", sheet.first->timeMs, sheet.first->position,
            sheet.first->length);
    put(out, R"("finished":{},"cut":{},"carried":{},)", sheet.finished, sheet.cut, sheet.carried);
    if (sheet.notesOnly)
        out += R"("notes_only":true,)";
}

void putRadar(std::string& out, const tSheet& sheet)
{
    const nlohmann::json spoke = nlohmann::json::parse(sheet.spokeLayout, nullptr, false);
    const bool hasSpoke = !sheet.spokeLayout.empty() && !spoke.is_discarded();
    if (sheet.radarSerial.empty() && !hasSpoke)
        return;
    put(out, R"("radar":{{"serial":{},"id":{},"addresses":{{)", jsonOf(sheet.radarSerial), sheet.radarId);
    for (const auto& [stream, address] : sheet.radarAddresses)
        put(out, "{}:{},", jsonOf(stream), jsonOf(address));
    if (out.back() == ',')
        out.pop_back();
    out += '}';
    if (hasSpoke)
        put(out, R"(,"spoke":{})", spoke.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
    out += "},";
}

void putLosses(std::string& out, const tSheetLosses& losses)
{
    put(out, R"("losses":{{"kernel_dropped":{},"queue_lost":{},"disk_lost":{},)", losses.kernelDropped,
        losses.queueLost, losses.diskLost);
    if (losses.missingOnWire)
        put(out, R"("missing_on_wire":{},)", *losses.missingOnWire);
    out += R"("joins_lost":)";
    putArray(out, losses.joinsLost, [&](const tLostJoin& lost) {
        put(out, R"({{"address":{},"from_ms":{},"to_ms":{}}})", jsonOf(lost.address), lost.fromMs, lost.toMs);
    });
    out += "},";
}

void putClock(std::string& out, const tSheetClock& clock)
{
    out += R"("clock":{)";
    if (!clock.source.empty())
        put(out, R"("source":{},)", jsonOf(clock.source));
    if (clock.offsetMs && std::isfinite(*clock.offsetMs))
        put(out, R"("offset_ms":{:.3f},)", *clock.offsetMs);
    if (clock.driftPpm && std::isfinite(*clock.driftPpm))
        put(out, R"("drift_ppm":{:.3f},)", *clock.driftPpm);
    out += R"("steps":)";
    putArray(out, clock.steps,
             [&](const tClockStep& step) { put(out, R"({{"at_ms":{},"step_ms":{}}})", step.atMs, step.stepMs); });
    out += "},";
}

// Seconds without messages are one negative number.
void putSeconds(std::string& out, const tPerSecond& seconds)
{
    std::uint64_t next = seconds.empty() ? 0 : seconds.front().first;
    put(out, R"("per_second":{{"from_s":{},"messages":)", next);
    putArray(out, seconds, [&](const auto& second) {
        if (second.first != next)
            put(out, "-{},", second.first - next);
        put(out, "{}", second.second);
        next = second.first + 1;
    });
    out += '}';
}

void putStream(std::string& out, const tSheetStream& stream)
{
    put(out, R"({{"stream":{},"address":{},"messages":{},"bytes":{},"digest":"{}",)", jsonOf(stream.key.name()),
        jsonOf(stream.key.address()), stream.messages, stream.bytes, stream.digest.text());
    put(out, R"("first_ms":{},"last_ms":{},"longest_silence_ms":{},"kernel_dropped":{},)", stream.firstMs,
        stream.lastMs, stream.longestSilenceMs, stream.kernelDropped);
    if (stream.missingOnWire)
        put(out, R"("missing_on_wire":{},)", *stream.missingOnWire);
    out += R"("gaps":)";
    putGaps(out, stream.gaps);
    out += ',';
    putSeconds(out, stream.perSecond);
    out += '}';
}

void putSums(std::string& out, const tSheet& sheet)
{
    if (sheet.headCrc32c)
        put(out, R"("head_crc32c":"{:08x}",)", *sheet.headCrc32c);
    if (sheet.fineCrc32c)
        put(out, R"("fine_crc32c":"{:08x}",)", *sheet.fineCrc32c);
    const tSheetBlocks& blocks = sheet.blocks;
    put(out, R"("blocks":{{"count":{},"records":"{}",)", blocks.records.size(), numbersText(blocks.records));
    put(out, R"("payload_crc32c":"{}","index_crc32c":"{}","crc32c":"{:08x}"}})", numbersText(blocks.payloadCrc32c),
        numbersText(blocks.indexCrc32c), sumOfSums(sheet));
}
}  // namespace

std::string sheetText(const tSheet& sheet)
{
    std::string out;
    putBeginning(out, sheet);
    put(out, R"("recorder":{{"version":{},"host":{}}},)", jsonOf(sheet.recorderVersion), jsonOf(sheet.recorderHost));
    putRadar(out, sheet);
    put(out, R"("interface":{},)", jsonOf(sheet.interface));
    putLosses(out, sheet.losses);
    putClock(out, sheet.clock);
    out += R"("notes":)";
    putArray(out, sheet.notes,
             [&](const tNote& note) { put(out, R"({{"time_ms":{},"text":{}}})", note.timeMs, jsonOf(note.text)); });
    out += R"(,"silences":)";
    putGaps(out, sheet.silences);
    out += R"(,"streams":)";
    putArray(out, sheet.streams, [&](const tSheetStream& stream) { putStream(out, stream); });
    out += ',';
    putSums(out, sheet);
    out += "}\n";
    return out;
}
}  // namespace recordings
