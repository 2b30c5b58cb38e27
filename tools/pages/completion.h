// What bash completes for kestova, made from the options of its commands.
#ifndef KESTOVA_TOOLS_PAGES_COMPLETION_H
#define KESTOVA_TOOLS_PAGES_COMPLETION_H

#include <CLI/CLI.hpp>
#include <string>

namespace tool
{
// Returns the functions and the variable that packaging/kestova.bash uses: the words of a command, what the value of an
// option is (its type in the help, the option "" being the arguments), the names of streams.
std::string completionTables(CLI::App& app);
}  // namespace tool

#endif
