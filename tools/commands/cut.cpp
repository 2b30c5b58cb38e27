// kestova cut: what lies in a span of recordings, as a new recording.
#include "KestovaRecordings/cut.h"

#include <fmt/format.h>
#include <memory>
#include <stdexcept>

#include "KestovaRecordings/groupaddress.h"
#include "tools/commands/commands.h"
#include "tools/commands/newrecording.h"
#include "tools/shell/leftout.h"
#include "tools/shell/options.h"
#include "tools/shell/places.h"
#include "tools/shell/units.h"

namespace tool
{
using namespace recordings;

namespace
{
struct tOptions : tRecordingOptions
{
    std::string folder, start, end, every, shift;
    std::vector<std::string> streams, groups;
    bool noState = false;
};

// "239.17.0.1:6001,239.17.0.9:6009"
std::vector<NetAddress> parseGroups(const std::string& text)
{
    std::vector<NetAddress> groups;
    for (std::size_t at = 0; at <= text.size();)
    {
        const std::size_t comma = std::min(text.find(',', at), text.size());
        groups.push_back(parseGroup(text.substr(at, comma - at)));
        at = comma + 1;
    }
    return groups;
}

std::uint64_t parsePeriod(const std::string& text)
{
    const std::uint64_t ms = parseDuration(text);
    if (ms == 0)
        throw std::invalid_argument("'" + text + "' is no length of a file: write 1ms or more");
    return ms;
}

tCutOptions cutOptions(const tOptions& options)
{
    tCutOptions wanted;
    wanted.paths = options.paths;
    wanted.suffix = options.suffix;
    wanted.folder = options.folder;
    if (!options.start.empty())
        wanted.start = parseMoment(options.start);
    if (!options.end.empty())
        wanted.end = parseMoment(options.end);
    wanted.streams = parseStreams(options.streams);
    for (const std::string& text : options.groups)
        for (const NetAddress& group : parseGroups(text))
            wanted.groups.push_back(group);
    wanted.everyMs = options.every.empty() ? 0 : parsePeriod(options.every);
    wanted.shiftMs = options.shift.empty() ? 0 : parseShift(options.shift);
    wanted.withState = !options.noState;
    return wanted;
}

void printResult(const tOptions& options, const tCutResult& result, tConsole& console)
{
    const std::string carried = result.carried == 0 ? ""
                                                    : fmt::format("; {} of them carried from before {}", result.carried,
                                                                  timeText(result.startMs));
    if (!options.json)
        return console.print(newFilesText(result.files) + fmt::format("{} records in {} files, {}{}\n", result.records,
                                                                      result.files.size(), sizeText(result.bytes),
                                                                      carried));
    printJson(console, {{"schema", "kestova/cut/1"},
                        {"paths", options.paths},
                        {"skipped", leftOutJson(result.leftOut)},
                        {"folder", options.folder},
                        {"files", newFilesJson(result.files)},
                        {"start_ms", result.startMs},
                        {"end_ms", result.endMs},
                        {"records", result.records},
                        {"bytes", result.bytes},
                        {"carried", result.carried},
                        {"damaged", result.damaged}});
}

int cut(const tOptions& options, tConsole& console)
try
{
    const tCutResult result = makeNewRecording(
        console, options.folder, [&](const auto& goOn) { return cutRecordings(cutOptions(options), goOn); });
    printResult(options, result, console);
    return reportSource(console, "cut", result.leftOut, result.damaged);
}
catch (const tNothingToCut& nothing)
{
    const bool chooses = !options.streams.empty() || !options.groups.empty();
    throw tFailure(fmt::format("none of the records is in the span{}: they are from {} to {}",
                               chooses ? " and of the chosen streams and groups" : "", timeText(nothing.firstMs()),
                               timeText(nothing.lastMs())));
}

void addSpan(CLI::App& command, tOptions& options)
{
    command
        .add_option("--start", options.start,
                    "The first time: +90s, -10m (from the end), 50% or \"2024-05-17 08:30:00\"")
        ->type_name("PLACE")
        ->check(checkedBy(parseMoment));
    command.add_option("--end", options.end, "The time to end before; to the last record without it")
        ->type_name("PLACE")
        ->check(checkedBy(parseMoment));
    command.add_option("--every", options.every, "A new file every so long from the start")
        ->type_name("DUR")
        ->check(checkedBy(parsePeriod));
    command.add_option("--shift", options.shift, "Add this to the times of the records: 2s, -00:01:30")
        ->type_name("DUR")
        ->check(checkedBy(parseShift));
}

void addChoice(CLI::App& command, tOptions& options)
{
    addStreams(command, options.streams);
    command.add_option("--groups", options.groups, "Only these groups, separated by commas")
        ->type_name("ADDRESS:PORT,...")
        ->allow_extra_args(false)
        ->check(checkedBy(parseGroups));
    command.add_flag("--no-state", options.noState, "Without the last record of each stream before the start");
}
}  // namespace

void addCut(CLI::App& app, tRun& chosen)
{
    auto options = std::make_shared<tOptions>();
    CLI::App& command = *app.add_subcommand("cut", "Make a recording of a part of others");
    command.footer(
        "Takes the records from --start on and before --end, byte for byte, with their times. First comes the\n"
        "state: of every stream but images the last record before the start, stamped with the start.\n"
        "Exit status 3 if damaged records or files were left out.\n"
        "Examples: kestova cut recordings --start -10m --to last\n"
        "          kestova cut recordings --start +5m --end +6m --streams arpaStream,aisDev --to part");
    addPaths(command, options->paths);
    addNewFolder(command, options->folder);
    addSpan(command, *options);
    addChoice(command, *options);
    addSuffix(command, options->suffix);
    addJson(command, options->json);
    command.callback([options, &chosen] { chosen = [options](tConsole& console) { return cut(*options, console); }; });
}
}  // namespace tool
