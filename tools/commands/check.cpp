// kestova check: what a recording depends on, looked at before the voyage.
#include <algorithm>
#include <chrono>
#include <fmt/format.h>
#include <memory>

#include "sessions/check/checksession.h"
#include "tools/commands/commands.h"
#include "tools/commands/recordsource.h"
#include "tools/shell/console.h"
#include "tools/shell/exitstatus.h"
#include "tools/shell/options.h"
#include "tools/shell/report.h"
#include "tools/shell/stopsignal.h"
#include "tools/shell/units.h"

namespace tool
{
using namespace session;

namespace
{
struct tOptions : tSourceOptions
{
    std::string listen = "5s";
    bool json = false;
};

const char* resultText(eCheckResult result)
{
    switch (result)
    {
    case eCheckResult::eOk:
        return "ok";
    case eCheckResult::eWarn:
        return "warn";
    default:
        return "fail";
    }
}

tJson checksJson(const tChecks& checks)
{
    tJson rows = tJson::array();
    for (const tCheck& check : checks)
    {
        tJson row = {{"name", check.name}};
        if (check.stream)
        {
            row["stream"] = check.stream->name();
            row["address"] = check.stream->address();
        }
        row["result"] = resultText(check.result);
        row["message"] = check.message;
        row["command"] = check.command;
        rows.push_back(row);
    }
    return rows;
}

std::string checksText(const tChecks& checks)
{
    std::string text, command;  // one that mends several things is printed with the first of them
    for (const tCheck& check : checks)
    {
        text += fmt::format("{:<6}{:<16}{}\n", resultText(check.result), check.name, check.message);
        if (!check.command.empty() && check.command != command)
            text += fmt::format("{:<22}try: {}\n", "", check.command);
        command = check.command;
    }
    return text;
}

int check(const tOptions& given, tConsole& console)
{
    const std::uint64_t listenMs = parseDuration(given.listen);
    const tStopSignal stop;
    tCheckSession session({given.parsed(), listenMs});
    const tChecks checks = session.run([&](std::uint64_t elapsedMs) {
        if (console.progressDue())
            console.progress(fmt::format("listening, {} of {}", durationText(elapsedMs), durationText(listenMs)));
        return !stop.requested();
    });
    const eCheckResult result = worst(checks);
    if (given.json)
        printJson(console, {{"schema", "kestova/check/1"},
                            {"result", resultText(result)},
                            {"listened_ms", session.listenedMs()},
                            {"checks", checksJson(checks)}});
    else
        console.print(checksText(checks));
    if (result == eCheckResult::eFail)
        return eFailed;
    return result == eCheckResult::eWarn ? eDamaged : eDone;
}
}  // namespace

void addCheck(CLI::App& app, tRun& chosen)
{
    auto options = std::make_shared<tOptions>();
    CLI::App& command = *app.add_subcommand("check", "Look at what a recording depends on, before the voyage");
    command.footer(
        "Takes the options of a recording and looks at the interface, the routes, the groups, the filters and\n"
        "buffers of the kernel, what is heard of each stream, the disk and the clock. Each warning and each\n"
        "failure comes with a command that mends it, or shows more. Records nothing and changes nothing.\n"
        "Exit status 0 if all is well, 3 with a warning, 1 with a failure.\n"
        "Example: kestova check --radars radars.json --radar A1:2 --id 1 --root recordings");
    addSource(command, *options);
    command.add_option("--root", options->record.root, "Storage root; without it the disk is left out")
        ->type_name("FOLDER");
    command.add_option("--listen", options->listen, "How long to listen to the streams")
        ->type_name("DUR")
        ->check(checkedBy(parseDuration))
        ->capture_default_str();
    addJson(command, options->json);
    command.callback([options, &command, &chosen] {
        requireSource(command);
        chosen = [options](tConsole& console) { return check(*options, console); };
    });
}
}  // namespace tool
