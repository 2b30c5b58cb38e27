// tDirection, addConvert: kestova compress and kestova expand, which rewrite finished recordings in the other form.
#ifndef KESTOVA_TOOLS_COMMANDS_CONVERT_H
#define KESTOVA_TOOLS_COMMANDS_CONVERT_H

#include "KestovaStorage/datafileconverter.h"
#include "tools/shell/command.h"

namespace tool
{
// The differences between the two commands.
struct tDirection
{
    const char* name;     // of the command
    const char* doing;    // in the progress line
    const char* what;     // in the help
    const char* footer;   // of the help
    bool fromCompressed;  // which files it converts; the others have its form already
    decltype(&storage::tDataFileConverter::CompressWhole) convert;
};

// `direction` must outlive the command line.
void addConvert(CLI::App& app, tRun& chosen, const tDirection& direction);
}  // namespace tool

#endif
