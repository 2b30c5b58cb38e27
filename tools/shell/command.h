// What a command is to the command line.
#ifndef KESTOVA_TOOLS_SHELL_COMMAND_H
#define KESTOVA_TOOLS_SHELL_COMMAND_H

#include <functional>

namespace CLI
{
class App;
}

namespace tool
{
class tConsole;

// Runs a command and returns its exit status; throws tFailure if the job fails.
using tRun = std::function<int(tConsole&)>;

// Adds a command and its options to the command line. If the user chooses it, it sets `chosen` while the line is
// parsed.
using tAddCommand = void(CLI::App& app, tRun& chosen);
}  // namespace tool

#endif
