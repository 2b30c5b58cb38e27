// The manual page of a command, made from its options and its help.
#ifndef KESTOVA_TOOLS_PAGES_MANPAGE_H
#define KESTOVA_TOOLS_PAGES_MANPAGE_H

#include <CLI/CLI.hpp>
#include <string>

namespace tool
{
// Returns the page kestova-COMMAND(1) in the language of man.
std::string manualPage(const CLI::App& command, const std::string& version);
}  // namespace tool

#endif
