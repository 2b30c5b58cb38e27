// kestova merge: several recordings as one, in order of time.
#include "KestovaRecordings/merge.h"

#include <algorithm>
#include <fmt/format.h>
#include <memory>
#include <utility>

#include "tools/commands/commands.h"
#include "tools/commands/newrecording.h"
#include "tools/shell/leftout.h"
#include "tools/shell/options.h"
#include "tools/shell/units.h"

namespace tool
{
using namespace recordings;

namespace
{
struct tOptions : tRecordingOptions
{
    std::string folder, tolerance;
    std::vector<std::string> shifts;
    bool unique = false;
};

// Returns path and ms of "PATH=DUR"; the path may have a "=", too.
std::pair<std::string, std::int64_t> parsePathShift(const std::string& text)
{
    const std::size_t sign = text.rfind('=');
    if (sign == std::string::npos || sign == 0)
        throw std::invalid_argument("'" + text + "' moves nothing: write PATH=DUR, such as b=-250ms");
    return {text.substr(0, sign), parseShift(text.substr(sign + 1))};
}

// A path as it was written, whatever stands behind it.
std::string withoutSlash(std::string path)
{
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

// Returns the shifts in the order of the paths. Throws what the parser throws for a wrong command line.
std::vector<std::int64_t> shiftsOf(const tOptions& options)
{
    std::vector<std::int64_t> shifts(options.paths.size(), 0);
    for (const std::string& text : options.shifts)
    {
        const auto [path, ms] = parsePathShift(text);
        bool known = false;
        for (std::size_t i = 0; i < shifts.size(); ++i)
            if (withoutSlash(options.paths[i]) == withoutSlash(path))
            {
                shifts[i] = ms;
                known = true;
            }
        if (!known)
            throw CLI::ValidationError("--shift", "'" + path + "' is none of the paths");
    }
    return shifts;
}

tMergeOptions mergeOptions(const tOptions& options)
{
    tMergeOptions wanted;
    wanted.paths = options.paths;
    wanted.suffix = options.suffix;
    wanted.folder = options.folder;
    wanted.shifts = shiftsOf(options);
    wanted.unique = options.unique;
    if (!options.tolerance.empty())
        wanted.toleranceMs = parseDuration(options.tolerance);
    return wanted;
}

void printResult(const tOptions& options, const tMergeResult& result, tConsole& console)
{
    if (!options.json)
        return console.print(
            newFilesText(result.files) +
            fmt::format("{} records in {} files, {}", result.records, result.files.size(), sizeText(result.bytes)) +
            (options.unique ? fmt::format("; {} repeated ones left out\n", result.repeated) : "\n"));
    printJson(console, {{"schema", "kestova/merge/1"},
                        {"paths", options.paths},
                        {"skipped", leftOutJson(result.leftOut)},
                        {"folder", options.folder},
                        {"files", newFilesJson(result.files)},
                        {"records", result.records},
                        {"bytes", result.bytes},
                        {"repeated", result.repeated},
                        {"damaged", result.damaged}});
}

int merge(const tOptions& options, tConsole& console)
{
    const tMergeResult result = makeNewRecording(
        console, options.folder, [&](const auto& goOn) { return mergeRecordings(mergeOptions(options), goOn); });
    printResult(options, result, console);
    return reportSource(console, "merge", result.leftOut, result.damaged);
}
}  // namespace

void addMerge(CLI::App& app, tRun& chosen)
{
    auto options = std::make_shared<tOptions>();
    CLI::App& command = *app.add_subcommand("merge", "Make one recording of several, in order of time");
    command.footer(
        "Every record byte for byte, with its time. Of two recorders of one radar --unique takes each message\n"
        "once: the same payload on the same group, within --tolerance.\n"
        "Exit status 3 if damaged records or files were left out.\n"
        "Examples: kestova merge port starboard --to both\n"
        "          kestova merge a b --shift b=-250ms --unique --to whole");
    addPaths(command, options->paths);
    addNewFolder(command, options->folder);
    command
        .add_option("--shift", options->shifts, "Add DUR to the times of the records below PATH, repeatable: b=-250ms")
        ->type_name("PATH=DUR")
        ->allow_extra_args(false)
        ->check(checkedBy(parsePathShift));
    CLI::Option* const unique = command.add_flag("--unique", options->unique,
                                                 "Take what two recordings have once; repetitions inside one stay");
    command.add_option("--tolerance", options->tolerance, "How far apart it may be in the two (1 s)")
        ->type_name("DUR")
        ->check(checkedBy(parseDuration))
        ->needs(unique);
    addSuffix(command, options->suffix);
    addJson(command, options->json);
    command.callback([options, &chosen] {
        shiftsOf(*options);
        chosen = [options](tConsole& console) { return merge(*options, console); };
    });
}
}  // namespace tool
