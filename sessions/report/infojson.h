// The result of kestova info as JSON.
#ifndef KESTOVA_SESSIONS_REPORT_INFOJSON_H
#define KESTOVA_SESSIONS_REPORT_INFOJSON_H

#include <cstddef>
#include <string>
#include <vector>

#include "KestovaRecordings/archive.h"
#include "KestovaRecordings/recordingcounts.h"
#include "sessions/report/json.h"

namespace session
{
tJson infoJson(const std::vector<std::string>& paths, const recordings::tRecordingCounts& counts, bool withDigest);

// Returns the sheets that count for nothing, each with its reason.
std::vector<recordings::tLeftOut> ignoredSheets(const recordings::tRecordingCounts& counts);
// Returns how many files have a sheet that says what was recorded.
std::size_t sheetCount(const recordings::tRecordingCounts& counts);
}  // namespace session

#endif
