// The results of kestova info, as text and as JSON.
#ifndef KESTOVA_TOOLS_COMMANDS_INFOREPORT_H
#define KESTOVA_TOOLS_COMMANDS_INFOREPORT_H

#include <cstddef>
#include <string>
#include <vector>

#include "KestovaRecordings/archive.h"
#include "KestovaRecordings/recordingcounts.h"
#include "tools/shell/report.h"

namespace tool
{
std::string infoText(const recordings::tRecordingCounts& counts, bool withDigest);
tJson infoJson(const std::vector<std::string>& paths, const recordings::tRecordingCounts& counts, bool withDigest);

// Returns the sheets that count for nothing, each with its reason.
std::vector<recordings::tLeftOut> ignoredSheets(const recordings::tRecordingCounts& counts);
// Returns how many files have a sheet that says what was recorded.
std::size_t sheetCount(const recordings::tRecordingCounts& counts);
}  // namespace tool

#endif
