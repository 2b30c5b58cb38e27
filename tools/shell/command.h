// The types by which the shell adds and runs a command.
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

// Adds a command and its options to the command line. Parsing sets `chosen` if the user chooses the command.
using tAddCommand = void(CLI::App& app, tRun& chosen);
}  // namespace tool

#endif
