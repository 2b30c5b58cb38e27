// kestova: records a marine radar's traffic, plays it back and shows what is in a recording.
#include <CLI/CLI.hpp>
#include <csignal>
#include <exception>
#include <fmt/format.h>
#include <sstream>

#include "tools/commands/commands.h"
#include "tools/shell/console.h"
#include "tools/shell/exitstatus.h"
#include "tools/shell/options.h"

namespace
{
using namespace tool;

// Prints help and version as results, any other end of parsing as wrong usage. Returns the exit status.
int explain(const CLI::App& app, const CLI::ParseError& error, tConsole& console)
{
    std::ostringstream out;
    std::ostringstream err;
    const int status = app.exit(error, out, err);
    console.print(out.str());
    console.flush();
    std::string text = err.str();
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    if (!text.empty())
        console.note(text);
    return status == 0 ? eDone : eUsage;
}

int runCommandLine(int argc, char** argv, tConsole& console)
{
    CLI::App app{"Records a marine radar's UDP multicast traffic and plays it back."};
    app.name("kestova");
    app.set_version_flag("--version", "kestova " KESTOVA_VERSION);
    app.require_subcommand(1);
    app.footer("Exit status: 0 done, 1 failed, 2 wrong usage, 3 done but something was lost or damaged.\n"
               "Example: kestova record --radars radars.json --radar A1:2 --id 1 --root recordings");
    app.failure_message([argc, argv](const CLI::App* self, const CLI::Error& error) {
        if (self->get_subcommands().empty() && argc > 1 && argv[1][0] != '-')
            return fmt::format("kestova: '{}' is no command (see kestova --help)\n", argv[1]);
        return fmt::format("kestova: {} (see kestova --help)\n", error.what());
    });
    tRun run;
    for (tAddCommand* const add : cCommands)
        add(app, run);
    for (CLI::App* const command : app.get_subcommands({}))
        addUtc(*command);
    try
    {
        app.parse(argc, argv);
    }
    catch (const CLI::ParseError& error)
    {
        return explain(app, error, console);
    }
    const int status = run(console);
    console.flush();
    return status;
}

// Writes the results before a failure.
void flushQuietly(tConsole& console)
{
    try
    {
        console.flush();
    }
    catch (const std::exception&)
    {
        // main() reports the earlier failure.
    }
}
}  // namespace

int main(int argc, char** argv)
{
    tConsole console;
    std::signal(SIGPIPE, SIG_IGN);  // a closed pipe is an error of write(), not the end of the process
    try
    {
        return runCommandLine(argc, argv, console);
    }
    catch (const tReaderGone&)
    {
        return eDone;
    }
    catch (const std::exception& error)
    {
        flushQuietly(console);
        console.note(fmt::format("kestova: {}", error.what()));
        return eFailed;
    }
}
