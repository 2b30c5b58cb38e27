// What a command left out: named on standard error and in its result, and counted in its exit status.
#ifndef KESTOVA_TOOLS_SHELL_LEFTOUT_H
#define KESTOVA_TOOLS_SHELL_LEFTOUT_H

#include <string_view>
#include <vector>

#include "KestovaRecordings/archive.h"
#include "sessions/report/leftoutjson.h"
#include "tools/shell/exitstatus.h"
#include "tools/shell/report.h"

namespace tool
{
// Returns the worse of two statuses: eFailed before eDamaged before eDone.
int worseStatus(int a, int b);

// Notes a line for each, after the name of the command. Returns eFailed if one of them is a path that was asked for,
// eDamaged if others are left out, eDone for none.
int reportLeftOut(tConsole& console, std::string_view command, const std::vector<recordings::tLeftOut>& leftOut);

// Notes a line for each sheet that counts for nothing.
void noteIgnoredSheets(tConsole& console, std::string_view command, const std::vector<recordings::tLeftOut>& sheets);

using session::leftOutJson;
}  // namespace tool

#endif
