// What the commands have in common: each adds itself to the command line and, once chosen, leaves what is to be run.
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

// Runs the chosen command and returns its exit status; throws tFailure where the job cannot be done.
using tRun = std::function<int(tConsole&)>;

void addSimulate(CLI::App& app, tRun& chosen);
void addRecord(CLI::App& app, tRun& chosen);
void addReplay(CLI::App& app, tRun& chosen);
void addInfo(CLI::App& app, tRun& chosen);
void addDump(CLI::App& app, tRun& chosen);
void addCompress(CLI::App& app, tRun& chosen);
void addExpand(CLI::App& app, tRun& chosen);
void addPcap(CLI::App& app, tRun& chosen);
void addExport(CLI::App& app, tRun& chosen);
}  // namespace tool

#endif
