// What the commands that make a recording of recordings report.
#ifndef KESTOVA_TOOLS_COMMANDS_NEWRECORDING_H
#define KESTOVA_TOOLS_COMMANDS_NEWRECORDING_H

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "KestovaRecordings/archive.h"
#include "KestovaRecordings/recordingoutput.h"
#include "tools/shell/report.h"

namespace tool
{
// Adds --to.
void addNewFolder(CLI::App& command, std::string& folder);

// Returns the ms of a duration with a sign, as --shift takes it. Throws std::invalid_argument with a sentence for the
// user.
std::int64_t parseShift(const std::string& text);

// Returns "path", "records", "bytes", "first_ms", "last_ms" for each file.
tJson newFilesJson(const std::vector<recordings::tNewFile>& files);
// Returns a line for each file.
std::string newFilesText(const std::vector<recordings::tNewFile>& files);

// Reports what was left out. Returns the exit status.
int reportSource(tConsole& console, const char* command, const std::vector<recordings::tLeftOut>& leftOut,
                 std::uint64_t damaged);
}  // namespace tool

#endif
