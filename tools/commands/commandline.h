// The command line: every command with its own options and those that all of them share.
#ifndef KESTOVA_TOOLS_COMMANDS_COMMANDLINE_H
#define KESTOVA_TOOLS_COMMANDS_COMMANDLINE_H

#include <CLI/CLI.hpp>

#include "tools/shell/command.h"
#include "tools/shell/options.h"

namespace tool
{
// Fills in an empty `app`. Parsing sets `chosen` and `volume`. Manual pages and completion are made from the same.
void addCommands(CLI::App& app, tRun& chosen, tVolumeOptions& volume);
}  // namespace tool

#endif
