// kestova info: what is in recordings.
#include <fmt/format.h>
#include <memory>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/recordingcounts.h"
#include "tools/commands/commands.h"
#include "tools/commands/inforeport.h"
#include "tools/commands/spokelayouts.h"
#include "tools/shell/console.h"
#include "tools/shell/exitstatus.h"
#include "tools/shell/leftout.h"
#include "tools/shell/options.h"
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
    bool timeline = false;
    std::string layout;
};

tCountOptions countOptions(const tOptions& options)
{
    tCountOptions count{options.suffix, parseDuration(options.gap), options.digest, options.timeline, {}};
    if (!options.layout.empty())
        count.layouts = spokeLayoutsFor({}, options.layout);
    return count;
}

int info(const tOptions& options, tConsole& console)
{
    const tStopSignal stop;
    const auto goOn = [&](const tCountProgress& at) {
        if (console.progressDue())
            console.progress(fmt::format("{} of {} files: {} of {} records", at.file, at.files, at.record, at.records));
        return !stop.requested();
    };
    const tRecordingCounts counts = countRecordings(options.paths, countOptions(options), goOn);
    if (options.json)
        printJson(console, infoJson(options.paths, counts, options.digest));
    else
        console.print(infoText(counts, options.digest));
    noteIgnoredSheets(console, "info", ignoredSheets(counts));
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
                   "recorded, gaps, damage, losses and notes. Files with a sheet are not read for it: verify finds "
                   "damage in them.\n"
                   "Exit status 3 if something is damaged or skipped.\n"
                   "Example: kestova info recordings --gap 5");
    addPaths(command, options->paths);
    addSuffix(command, options->suffix);
    command.add_option("--gap", options->gap, "Silences of a stream from this length on are gaps")
        ->type_name("SEC")
        ->check(checkedBy(parseDuration))
        ->capture_default_str();
    command.add_flag("--digest", options->digest, "A digest of each stream, as simulate, record and replay give it");
    addLayout(command, options->layout);
    addJson(command, options->json);
    command.add_flag("--timeline", options->timeline, "Messages of each stream in each second")
        ->needs(command.get_option("--json"));
    command.callback([options, &chosen] { chosen = [options](tConsole& console) { return info(*options, console); }; });
}
}  // namespace tool
