// kestova recover: finishes what a crash left, and saves what is whole in damaged recordings.
#include <fmt/format.h>
#include <memory>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/recover.h"
#include "tools/commands/commands.h"
#include "tools/shell/console.h"
#include "tools/shell/exitstatus.h"
#include "tools/shell/findings.h"
#include "tools/shell/leftout.h"
#include "tools/shell/options.h"
#include "tools/shell/report.h"
#include "tools/shell/stopsignal.h"

namespace tool
{
using namespace recordings;

namespace
{
struct tOptions : tRecordingOptions
{
    std::string to;
};

tJson recoverJson(const tOptions& options, const tRecoveries& recoveries)
{
    tJson files = tJson::array();
    for (const tRecoveredFile& file : recoveries.files)
        files.push_back({{"path", file.path},
                         {"done", recoveryName(file.recovery)},
                         {"result", file.result},
                         {"kept", file.kept},
                         {"left_out", file.leftOut},
                         {"findings", findingsJson(file.findings)}});
    return {{"schema", "kestova/recover/1"},  {"paths", options.paths},
            {"files", std::move(files)},      {"skipped", leftOutJson(recoveries.leftOut)},
            {"kept", recoveries.kept},        {"left_out", recoveries.recordsLeftOut},
            {"complete", recoveries.complete}};
}

std::string fileText(const tRecoveredFile& file)
{
    switch (file.recovery)
    {
    case eRecovery::eNothing:
        return fmt::format("{}\n  sound, {} records\n", file.path, file.kept);
    case eRecovery::eFinished:
        return fmt::format("{}\n  finished, {} records\n", file.path, file.kept);
    default:
        return fmt::format("{}\n  {} records kept in {}, {} left out\n", file.path, file.kept, file.result,
                           file.leftOut) +
               findingsText(file.findings, 0);
    }
}

std::string recoverText(const tRecoveries& recoveries)
{
    std::string text;
    for (const tRecoveredFile& file : recoveries.files)
        text += fileText(file);
    return text + fmt::format("total: {} records kept, {} left out\n", recoveries.kept, recoveries.recordsLeftOut);
}

int recover(const tOptions& options, tConsole& console)
{
    const tStopSignal stop;
    const auto goOn = [&](const tVerifyProgress& at) {
        if (console.progressDue())
            console.progress(verifyingText(at));
        return !stop.requested();
    };
    const tRecoveries recoveries = recoverRecordings(options.paths, {options.suffix, options.to}, goOn);
    if (options.json)
        printJson(console, recoverJson(options, recoveries));
    else
        console.print(recoverText(recoveries));
    if (!recoveries.complete)
        throw tFailure("recover was interrupted; the files that are not listed are as they were");
    return worseStatus(recoveries.recordsLeftOut == 0 ? eDone : eDamaged,
                       reportLeftOut(console, "recover", recoveries.leftOut));
}
}  // namespace

void addRecover(CLI::App& app, tRun& chosen)
{
    auto options = std::make_shared<tOptions>();
    CLI::App& command = *app.add_subcommand("recover", "Finish what a crash left, save what is whole in damaged files");
    command.footer(
        "An unfinished file is finished in place, unless it is being recorded. A damaged one stays as it is: "
        "its whole\n"
        "records go to a new recording, --to. Results are verified.\n"
        "Exit status 0 if everything was kept, 3 if something was left out, 1 if it was not possible.\n"
        "Example: kestova recover recordings --to recovered");
    addPaths(command, options->paths);
    addSuffix(command, options->suffix);
    command.add_option("--to", options->to, "The new recording: a folder that does not exist yet")->type_name("FOLDER");
    addJson(command, options->json);
    command.callback(
        [options, &chosen] { chosen = [options](tConsole& console) { return recover(*options, console); }; });
}
}  // namespace tool
