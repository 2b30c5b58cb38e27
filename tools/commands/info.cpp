// kestova info: what is in recordings.
#include <algorithm>
#include <fmt/format.h>
#include <memory>

#include "KestovaRecordings/archive.h"
#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/recordingcounts.h"
#include "tools/commands/commands.h"
#include "tools/shell/console.h"
#include "tools/shell/exitstatus.h"
#include "tools/shell/leftout.h"
#include "tools/shell/options.h"
#include "tools/shell/places.h"
#include "tools/shell/report.h"
#include "tools/shell/stopsignal.h"
#include "tools/shell/units.h"

namespace tool
{
using namespace recordings;

namespace
{
struct tOptions : tRecordingOptions
{
    std::string gap = "2";
    bool digest = false;
};

tJson gapsJson(const std::vector<tGap>& gaps)
{
    tJson rows = tJson::array();
    for (const tGap& gap : gaps)
        rows.push_back({{"from_ms", gap.fromMs}, {"to_ms", gap.toMs}, {"length_ms", gap.length()}});
    return rows;
}

tJson streamsOf(const tStreamHistories& streams, const std::vector<tGap>& silences, bool withDigest)
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
        if (withDigest)
            row["digest"] = stream.digest().text();
        rows.push_back(std::move(row));
    }
    return rows;
}

tJson fileJson(const tFileCounts& file, const std::vector<tGap>& silences, bool withDigest)
{
    return {{"path", file.path},         {"kind", kindName(file.kind)},
            {"readable", file.readable}, {"finished", file.finished},
            {"size", file.size},         {"disk_size", file.diskSize},
            {"records", file.records},   {"bytes", file.bytes},
            {"damaged", file.damaged},   {"first_ms", file.firstMs},
            {"last_ms", file.lastMs},    {"streams", streamsOf(file.streams, silences, withDigest)}};
}

tJson totalJson(const tRecordingCounts& counts, bool withDigest)
{
    const tTotalCounts& totals = counts.total;
    return {{"files", counts.files.size()},
            {"size", totals.size},
            {"disk_size", totals.diskSize},
            {"records", totals.records},
            {"bytes", totals.bytes},
            {"damaged", totals.damaged},
            {"first_ms", totals.firstMs},
            {"last_ms", totals.lastMs},
            {"gaps", gapsJson(totals.silences)},
            {"streams", streamsOf(totals.streams, totals.silences, withDigest)}};
}

tJson infoJson(const tOptions& options, const tRecordingCounts& counts)
{
    tJson files = tJson::array();
    for (const tFileCounts& file : counts.files)
        files.push_back(fileJson(file, counts.total.silences, options.digest));
    return {{"schema", "kestova/info/2"},
            {"paths", options.paths},
            {"files", std::move(files)},
            {"skipped", leftOutJson(counts.leftOut)},
            {"total", totalJson(counts, options.digest)}};
}

std::string sizesText(std::uint64_t size, std::uint64_t onDisk)
{
    return fmt::format("{}, {} on disk", sizeText(size), sizeText(onDisk));
}

std::string fileText(const tFileCounts& file)
{
    std::string text =
        fmt::format("{}\n  {}, {}, {}, {} records", file.path, kindName(file.kind),
                    file.finished ? "finished" : "unfinished", sizesText(file.size, file.diskSize), file.records);
    if (file.damaged > 0)
        text += fmt::format(", {} damaged", file.damaged);
    if (!file.readable)
        text += "; none of them can be read";
    if (file.records > 0)
        text += fmt::format("\n  {} to {} ({})", timeText(file.firstMs), timeText(file.lastMs),
                            durationText(file.lastMs - file.firstMs));
    return text + '\n';
}

std::string streamsTextOf(const tTotalCounts& total, bool withDigest)
{
    std::string text = fmt::format("\n{:<18}{:<23}{:>10}{:>11}{:>11}{:>13}{}\n", "stream", "address", "records",
                                   "bytes", "records/s", "rate", withDigest ? "  digest" : "");
    for (const auto& [key, stream] : total.streams)
        text += fmt::format("{:<18}{:<23}{:>10}{:>11}{:>11.1f}{:>13}{}\n", key.name(), key.address(), stream.messages(),
                            sizeText(stream.bytes()), stream.messagesPerSecond(total.silences),
                            rateText(stream.bytesPerSecond(total.silences)),
                            withDigest ? "  " + stream.digest().text() : "");
    return text;
}

using tNamedGap = std::pair<tGap, std::string>;

// Returns lines of the longest gaps, the longest first; nothing for none.
std::string gapLines(const char* head, std::vector<tNamedGap> gaps)
{
    constexpr std::size_t cMost = 10;
    if (gaps.empty())
        return "";
    std::stable_sort(gaps.begin(), gaps.end(),
                     [](const tNamedGap& a, const tNamedGap& b) { return a.first.length() > b.first.length(); });
    std::string text = fmt::format("\n{}, the longest first\n", head);
    for (std::size_t i = 0; i < std::min(cMost, gaps.size()); ++i)
        text += fmt::format("{}  from {} to {}  {}\n", durationText(gaps[i].first.length()),
                            timeText(gaps[i].first.fromMs), timeText(gaps[i].first.toMs), gaps[i].second);
    return text;
}

std::string gapsText(const tTotalCounts& total)
{
    std::vector<tNamedGap> everything, single;
    for (const tGap& silence : total.silences)
        everything.emplace_back(silence, "everything");
    for (const auto& [key, stream] : total.streams)
        for (const tGap& gap : stream.gaps(total.silences))
            single.emplace_back(gap, key.name() + " " + key.address());
    const std::string text =
        gapLines("nothing was recorded", std::move(everything)) + gapLines("gaps of streams", std::move(single));
    return text.empty() ? "\nno gaps\n" : text;
}

std::string infoText(const tOptions& options, const tRecordingCounts& counts)
{
    const tTotalCounts& totals = counts.total;
    std::string text;
    for (const tFileCounts& file : counts.files)
        text += fileText(file);
    if (!totals.streams.empty())
        text += streamsTextOf(totals, options.digest) + gapsText(totals);
    text += fmt::format("\ntotal: {} data files, {}, {} records, {} of payload", counts.files.size(),
                        sizesText(totals.size, totals.diskSize), totals.records, sizeText(totals.bytes));
    if (totals.damaged > 0)
        text += fmt::format(", {} damaged records", totals.damaged);
    if (!counts.leftOut.empty())
        text += fmt::format(", {} skipped", counts.leftOut.size());
    return text + '\n';
}

int info(const tOptions& options, tConsole& console)
{
    const tStopSignal stop;
    const auto goOn = [&](const tCountProgress& at) {
        if (console.progressDue())
            console.progress(fmt::format("{} of {} files: {} of {} records", at.file, at.files, at.record, at.records));
        return !stop.requested();
    };
    const tRecordingCounts counts =
        countRecordings(options.paths, {options.suffix, parseDuration(options.gap), options.digest}, goOn);
    if (options.json)
        printJson(console, infoJson(options, counts));
    else
        console.print(infoText(options, counts));
    if (!counts.complete)
        throw tFailure("info was ended before everything was looked through");
    return worseStatus(counts.total.damaged > 0 ? eDamaged : eDone, reportLeftOut(console, "info", counts.leftOut));
}
}  // namespace

void addInfo(CLI::App& app, tRun& chosen)
{
    auto options = std::make_shared<tOptions>();
    CLI::App& command = *app.add_subcommand("info", "Show what is in recordings");
    command.footer("Shows files with their length and what they take on the disk, time span, streams, rates over the "
                   "time that was\n"
                   "recorded, gaps and damage. Exit status 3 if something is damaged or skipped.\n"
                   "Example: kestova info recordings --gap 5");
    addPaths(command, options->paths);
    addSuffix(command, options->suffix);
    command.add_option("--gap", options->gap, "Silences of a stream from this length on are gaps")
        ->type_name("SEC")
        ->check(checkedBy(parseDuration))
        ->capture_default_str();
    command.add_flag("--digest", options->digest, "A digest of each stream, as simulate, record and replay give it");
    addJson(command, options->json);
    command.callback([options, &chosen] { chosen = [options](tConsole& console) { return info(*options, console); }; });
}
}  // namespace tool
