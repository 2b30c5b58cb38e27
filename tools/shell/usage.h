// What the command line answers to wrong usage, and `kestova help`.
#ifndef KESTOVA_TOOLS_SHELL_USAGE_H
#define KESTOVA_TOOLS_SHELL_USAGE_H

#include <string>
#include <vector>

#include "tools/shell/command.h"

namespace CLI
{
class ParseError;
}

namespace tool
{
// Returns the one of `known` that `text` is probably meant to be; empty if none is like it.
std::string closestTo(const std::string& text, const std::vector<std::string>& known);

// Returns whether the first argument takes the place of a command and is none: parsing then reports something else, or
// prints the help of kestova.
bool isUnknownCommand(const CLI::App& app, const std::vector<std::string>& arguments);

// Returns one line for the user: what is wrong, what was probably meant, and which help to read. `arguments` are those
// behind the program's name.
std::string usageText(CLI::App& app, const CLI::ParseError& error, const std::vector<std::string>& arguments);

// Adds "help [COMMAND]".
void addHelp(CLI::App& app, tRun& chosen);
}  // namespace tool

#endif
