// Names of files as text for people.
#ifndef KESTOVA_TOOLS_SHELL_NAMES_H
#define KESTOVA_TOOLS_SHELL_NAMES_H

#include <string>
#include <string_view>

namespace tool
{
// Returns the text with control characters as "\x1b": a name may hold any, and none may reach the terminal.
std::string printable(std::string_view text);
bool isUtf8(std::string_view text);
}  // namespace tool

#endif
