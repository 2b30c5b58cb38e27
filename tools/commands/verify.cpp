// kestova verify: whether recordings are as they were recorded.
#include <fmt/format.h>
#include <memory>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/verify.h"
#include "sessions/report/verifyjson.h"
#include "tools/commands/commands.h"
#include "tools/shell/console.h"
#include "tools/shell/exitstatus.h"
#include "tools/shell/findings.h"
#include "tools/shell/leftout.h"
#include "tools/shell/options.h"
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
    bool quick = false;
};

std::string fileText(const tVerifiedFile& file)
{
    std::string text = fmt::format("{}\n  {}, {} records, {}{}", file.path, stateName(file.state), file.records,
                                   sizeText(file.size), file.hasSheet ? "" : ", no sheet");
    if (file.lost != 0)
        text += fmt::format(", {} lost while it was recorded", file.lost);
    if (file.missingOnWire)
        text += fmt::format(", missing on the wire {}", *file.missingOnWire);
    return text + '\n' + findingsText(file.findings, file.moreFindings);
}

std::string verifyText(const tVerification& verification)
{
    std::string text;
    for (const tVerifiedFile& file : verification.files)
        text += fileText(file);
    text += fmt::format("total: {} sound, {} recording, {} unfinished, {} damaged", verification.sound,
                        verification.recording, verification.unfinished, verification.damaged);
    if (const auto missing = session::missingIn(verification))
        text += fmt::format(", missing on the wire {}", *missing);
    if (!verification.leftOut.empty())
        text += fmt::format(", {} skipped", verification.leftOut.size());
    return text + '\n';
}

int verify(const tOptions& options, tConsole& console)
{
    const tStopSignal stop;
    const auto goOn = [&](const tVerifyProgress& at) {
        if (console.progressDue())
            console.progress(verifyingText(at));
        return !stop.requested();
    };
    const tVerification verification = verifyRecordings(options.paths, {options.suffix, options.quick}, goOn);
    if (options.json)
        printJson(console, session::verifyJson(options.paths, options.quick, verification));
    else
        console.print(verifyText(verification));
    if (!verification.complete)
        throw tFailure("verify was ended before everything was read");
    const bool isSound = verification.unfinished == 0 && verification.damaged == 0;
    return worseStatus(isSound ? eDone : eDamaged, reportLeftOut(console, "verify", verification.leftOut));
}
}  // namespace

void addVerify(CLI::App& app, tRun& chosen)
{
    auto options = std::make_shared<tOptions>();
    CLI::App& command = *app.add_subcommand("verify", "Check that recordings are as they were recorded");
    command.footer(
        "Reads every byte and says what is wrong, in which record, where in the file and when. With the sheet "
        "of a\n"
        "recording any flipped bit is found. A recording under way is never damaged. Nothing is changed.\n"
        "Exit status 0 if all are sound or being recorded, 3 otherwise, 1 if nothing could be examined.\n"
        "Example: kestova verify recordings");
    addPaths(command, options->paths);
    addSuffix(command, options->suffix);
    command.add_flag("--quick", options->quick, "All but the segments: heads, index, sizes and sheets");
    addJson(command, options->json);
    command.callback(
        [options, &chosen] { chosen = [options](tConsole& console) { return verify(*options, console); }; });
}
}  // namespace tool
