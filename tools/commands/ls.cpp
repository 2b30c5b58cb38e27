// kestova ls: the recordings below storage roots.
#include <algorithm>
#include <chrono>
#include <fmt/format.h>
#include <memory>

#include "KestovaRecordings/recordinglist.h"
#include "sessions/report/listrow.h"
#include "tools/commands/commands.h"
#include "tools/shell/console.h"
#include "tools/shell/leftout.h"
#include "tools/shell/names.h"
#include "tools/shell/options.h"
#include "tools/shell/places.h"
#include "tools/shell/report.h"
#include "tools/shell/units.h"

namespace tool
{
using namespace recordings;

namespace
{
struct tOptions : tRecordingOptions
{
    std::string since, until, radar;
    bool kept = false;
};

std::uint64_t whenOf(const std::string& text)
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return parseWhen(text,
                     static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count()));
}

tListOptions listOptions(const tOptions& given)
{
    tListOptions options;
    options.suffix = given.suffix;
    options.radar = given.radar;
    options.keptOnly = given.kept;
    if (!given.since.empty())
        options.sinceMs = whenOf(given.since);
    if (!given.until.empty())
        options.untilMs = whenOf(given.until);
    return options;
}

tJson lsJson(const tOptions& options, const tRecordingList& list)
{
    tJson rows = tJson::array();
    for (const tListedRecording& one : list.recordings)
        rows.push_back(session::listRow(one));
    return {{"schema", "kestova/ls/1"},
            {"roots", options.paths},
            {"recordings", std::move(rows)},
            {"skipped", leftOutJson(list.leftOut)},
            {"ignored_sheets", leftOutJson(list.foreignSheets)}};
}

std::string rowText(const tListedRecording& one, std::size_t width)
{
    const bool isEmpty = one.records == 0;
    std::string text = fmt::format("{:<{}}  {:<19}  {:>12}{:>6}{:>11}  {:<10}", printable(one.path), width,
                                   isEmpty ? "-" : timeText(one.firstMs).substr(0, 19),
                                   isEmpty ? "-" : durationText(one.lastMs - one.firstMs), one.files,
                                   sizeText(one.sizeBytes), stateName(one.state));
    // What no sheet tells is not known.
    text += one.sheets == 0 ? fmt::format("{:>6}", "-") : fmt::format("{:>6}", one.lost);
    return text + fmt::format("{:>7}{}\n", one.notes, one.kept ? "  kept" : "");
}

std::string lsText(const tRecordingList& list)
{
    std::size_t width = 9;
    std::uint64_t size = 0;
    for (const tListedRecording& one : list.recordings)
    {
        width = std::max(width, printable(one.path).size());
        size += one.sizeBytes;
    }
    std::string text = fmt::format("{:<{}}  {:<19}  {:>12}{:>6}{:>11}  {:<10}{:>6}{:>7}\n", "recording", width, "begin",
                                   "duration", "files", "size", "state", "lost", "notes");
    for (const tListedRecording& one : list.recordings)
        text += rowText(one, width);
    return text + fmt::format("total: {} recordings, {}\n", list.recordings.size(), sizeText(size));
}

int ls(const tOptions& options, tConsole& console)
{
    const tRecordingList list = listRecordings(options.paths, listOptions(options));
    if (options.json)
        printJson(console, lsJson(options, list));
    else
        console.print(lsText(list));
    noteIgnoredSheets(console, "ls", list.foreignSheets);
    return reportLeftOut(console, "ls", list.leftOut);
}
}  // namespace

void addLs(CLI::App& app, tRun& chosen)
{
    auto options = std::make_shared<tOptions>();
    CLI::App& command = *app.add_subcommand("ls", "List recordings, the newest first");
    command.footer(
        "One row a recording: a folder with data files in it. Size is what it takes on the disk; lost and notes "
        "are\n"
        "known from the sheets beside the files. Exit status 3 if something was skipped.\n"
        "Examples: kestova ls recordings --since 2d\n"
        "          kestova ls /mnt/* --radar A1:2 --since 2024-05-17 --until \"2024-05-17 12:00:00\"");
    addPaths(command, options->paths);
    addSuffix(command, options->suffix);
    const auto checkedTime = checkedBy(whenOf);
    command.add_option("--since", options->since, "Only recordings that reach into the time from then on")
        ->type_name("TIME")
        ->check(checkedTime);
    command.add_option("--until", options->until, "Only recordings that began before then")
        ->type_name("TIME")
        ->check(checkedTime);
    command.add_option("--radar", options->radar, "Only recordings of this radar")->type_name("SERIAL");
    command.add_flag("--kept", options->kept, "Only recordings that nothing may delete");
    addJson(command, options->json);
    command.callback([options, &chosen] { chosen = [options](tConsole& console) { return ls(*options, console); }; });
}
}  // namespace tool
