// kestova keep: marks recordings that nothing may delete.
#include <algorithm>
#include <fmt/format.h>
#include <memory>

#include "KestovaRecordings/archive.h"
#include "KestovaRecordings/failure.h"
#include "sessions/keeping.h"
#include "tools/commands/commands.h"
#include "tools/shell/console.h"
#include "tools/shell/exitstatus.h"
#include "tools/shell/leftout.h"
#include "tools/shell/names.h"
#include "tools/shell/options.h"
#include "tools/shell/report.h"

namespace tool
{
using namespace recordings;

namespace
{
struct tOptions : tRecordingOptions
{
    bool release = false;
};

int keep(const tOptions& options, tConsole& console)
{
    const tFoundFiles found = findAllRecordings(options.paths, options.suffix);
    session::tKeeping keeping(!options.release, options.suffix);
    keeping.mark(found);
    if (keeping.marked() == 0)
        throw nothingLeft(found.leftOut);
    console.inform(fmt::format("{} {} files; {} were {} already", options.release ? "released" : "keeping",
                               keeping.changed().size(), keeping.marked() - keeping.changed().size(),
                               options.release ? "released" : "kept"));
    if (options.json)
        printJson(console, {{"schema", "kestova/keep/1"},
                            {"paths", options.paths},
                            {"kept", !options.release},
                            {"files", keeping.marked()},
                            {"changed", keeping.changed()},
                            {"skipped", leftOutJson(found.leftOut)}});
    return reportLeftOut(console, "keep", found.leftOut);
}
}  // namespace

void addKeep(CLI::App& app, tRun& chosen)
{
    auto options = std::make_shared<tOptions>();
    CLI::App& command = *app.add_subcommand("keep", "Let nothing delete recordings");
    command.footer(
        "prune, record --max-age, --max-size, --min-free and --reclaim pass over what is kept. The files that a\n"
        "recording under way still begins are kept, too.\n"
        "Example: kestova keep recordings/Data_000003_2024.05.17");
    addPaths(command, options->paths);
    command.add_flag("--release", options->release, "Let them be deleted again");
    addSuffix(command, options->suffix);
    addJson(command, options->json);
    command.callback([options, &chosen] { chosen = [options](tConsole& console) { return keep(*options, console); }; });
}
}  // namespace tool
