// kestova info: what is in a data file or a folder of them.
#include <algorithm>
#include <fmt/format.h>
#include <memory>

#include "KestovaRecordings/archive.h"
#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/recordingcounts.h"
#include "tools/commands/commands.h"
#include "tools/shell/console.h"
#include "tools/shell/exitstatus.h"
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

tJson streamsOf(const tStreamHistories& streams, bool withDigest)
{
    tJson rows = tJson::array();
    for (const auto& [key, stream] : streams)
    {
        tJson gaps = tJson::array();
        for (const tGap& gap : stream.gaps())
            gaps.push_back({{"from_ms", gap.fromMs}, {"to_ms", gap.toMs}, {"length_ms", gap.length()}});
        tJson row = {{"stream", key.name()},
                     {"address", key.address()},
                     {"records", stream.messages()},
                     {"bytes", stream.bytes()},
                     {"first_ms", stream.firstMs()},
                     {"last_ms", stream.lastMs()},
                     {"records_per_second", stream.messagesPerSecond()},
                     {"bytes_per_second", stream.bytesPerSecond()},
                     {"gaps", std::move(gaps)}};
        if (withDigest)
            row["digest"] = stream.digest().text();
        rows.push_back(std::move(row));
    }
    return rows;
}

tJson fileJson(const tFileCounts& file, bool withDigest)
{
    if (!file.error.empty())
        return {{"path", file.path}, {"error", file.error}};
    return {{"path", file.path},
            {"kind", kindName(file.kind)},
            {"readable", file.readable},
            {"finished", file.finished},
            {"size", file.size},
            {"records", file.records},
            {"bytes", file.bytes},
            {"damaged", file.damaged},
            {"first_ms", file.firstMs},
            {"last_ms", file.lastMs},
            {"streams", streamsOf(file.streams, withDigest)}};
}

tJson infoJson(const tOptions& options, const tRecordingCounts& counts)
{
    const tTotalCounts& totals = counts.total;
    tJson files = tJson::array();
    for (const tFileCounts& file : counts.files)
        files.push_back(fileJson(file, options.digest));
    return {{"schema", "kestova/info/2"},
            {"path", options.path},
            {"files", std::move(files)},
            {"total",
             {{"files", counts.files.size()},
              {"size", totals.size},
              {"records", totals.records},
              {"bytes", totals.bytes},
              {"damaged", totals.damaged},
              {"skipped", totals.skipped},
              {"first_ms", totals.firstMs},
              {"last_ms", totals.lastMs},
              {"streams", streamsOf(totals.streams, options.digest)}}}};
}

std::string fileText(const tFileCounts& file)
{
    if (!file.error.empty())
        return fmt::format("{}\n  skipped: {}\n", file.path, file.error);
    std::string text = fmt::format("{}\n  {}, {}, {}, {} records", file.path, kindName(file.kind),
                                   file.finished ? "finished" : "unfinished", sizeText(file.size), file.records);
    if (file.damaged > 0)
        text += fmt::format(", {} damaged", file.damaged);
    if (!file.readable)
        text += "; none of them can be read";
    if (file.records > 0)
        text += fmt::format("\n  {} to {} ({})", timeText(file.firstMs), timeText(file.lastMs),
                            durationText(file.lastMs - file.firstMs));
    return text + '\n';
}

std::string streamsTextOf(const tStreamHistories& streams, bool withDigest)
{
    std::string text = fmt::format("\n{:<18}{:<23}{:>10}{:>11}{:>11}{:>13}{}\n", "stream", "address", "records",
                                   "bytes", "records/s", "rate", withDigest ? "  digest" : "");
    for (const auto& [key, stream] : streams)
        text += fmt::format("{:<18}{:<23}{:>10}{:>11}{:>11.1f}{:>13}{}\n", key.name(), key.address(), stream.messages(),
                            sizeText(stream.bytes()), stream.messagesPerSecond(), rateText(stream.bytesPerSecond()),
                            withDigest ? "  " + stream.digest().text() : "");
    return text;
}

std::string gapsText(const tStreamHistories& streams)
{
    constexpr std::size_t cMost = 10;
    std::vector<std::pair<tGap, std::string>> all;
    for (const auto& [key, stream] : streams)
    {
        for (const tGap& gap : stream.gaps())
            all.emplace_back(gap, key.name() + " " + key.address());
    }
    std::stable_sort(all.begin(), all.end(),
                     [](const auto& a, const auto& b) { return a.first.length() > b.first.length(); });
    std::string text = all.empty() ? "\nno gaps\n" : "\ngaps, the longest first\n";
    for (std::size_t i = 0; i < std::min(cMost, all.size()); ++i)
        text += fmt::format("{}  from {}  {}\n", durationText(all[i].first.length()),
                            timeText(all[i].first.fromMs), all[i].second);
    return text;
}

std::string infoText(const tOptions& options, const tRecordingCounts& counts)
{
    const tTotalCounts& totals = counts.total;
    std::string text;
    for (const tFileCounts& file : counts.files)
        text += fileText(file);
    if (!totals.streams.empty())
        text += streamsTextOf(totals.streams, options.digest) + gapsText(totals.streams);
    text += fmt::format("\ntotal: {} data files, {} records, {} of payload", counts.files.size() - totals.skipped,
                        totals.records, sizeText(totals.bytes));
    if (totals.damaged > 0)
        text += fmt::format(", {} damaged records", totals.damaged);
    if (totals.skipped > 0)
        text += fmt::format(", {} other files skipped", totals.skipped);
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
        countRecordings(options.path, {options.suffix, parseDuration(options.gap), options.digest}, goOn);
    if (options.json)
        printJson(console, infoJson(options, counts));
    else
        console.print(infoText(options, counts));
    if (!counts.complete)
        throw tFailure("info was ended before everything was looked through");
    return counts.total.damaged > 0 || counts.total.skipped > 0 ? eDamaged : eDone;
}
}  // namespace

void addInfo(CLI::App& app, tRun& chosen)
{
    auto options = std::make_shared<tOptions>();
    CLI::App& command = *app.add_subcommand("info", "Show what is in a recording");
    command.footer("Shows files, time span, streams, rates, gaps and damage. Exit status 3 if something is damaged.\n"
                   "Example: kestova info recordings --gap 5");
    addPath(command, options->path);
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
