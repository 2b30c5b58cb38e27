// kestova: records a marine radar's traffic, plays it back and shows what is in a recording.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <exception>
#include <fmt/format.h>
#include <sstream>
#include <string>
#include <vector>

#include "tools/commands/commandline.h"
#include "tools/shell/console.h"
#include "tools/shell/exitstatus.h"
#include "tools/shell/options.h"
#include "tools/shell/usage.h"

namespace
{
using namespace tool;

// Prints help and version as results, any other end of parsing as wrong usage. Returns the exit status.
int explain(CLI::App& app, const CLI::ParseError& error, const std::vector<std::string>& arguments, tConsole& console)
{
    if (error.get_exit_code() != 0 || isUnknownCommand(app, arguments))
    {
        console.note(usageText(app, error, arguments));
        return eUsage;
    }
    std::ostringstream out;
    app.exit(error, out, out);
    console.print(out.str());
    console.flush();
    return eDone;
}

int runCommandLine(int argc, char** argv, tConsole& console)
{
    CLI::App app;
    tRun run;
    tVolumeOptions volume;
    addCommands(app, run, volume);
    try
    {
        app.parse(argc, argv);
    }
    catch (const CLI::ParseError& error)
    {
        return explain(app, error, {argv + std::min(argc, 1), argv + argc}, console);
    }
    console.setVolume(volume.chosen());
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
        console.note(fmt::format("kestova: {}", error.what()), eUrgency::eError);
        return eFailed;
    }
}
