// The results of kestova info, as text and as JSON.
#ifndef KESTOVA_TOOLS_COMMANDS_INFOREPORT_H
#define KESTOVA_TOOLS_COMMANDS_INFOREPORT_H

#include <string>

#include "KestovaRecordings/recordingcounts.h"
#include "sessions/report/infojson.h"

namespace tool
{
std::string infoText(const recordings::tRecordingCounts& counts, bool withDigest);
using session::ignoredSheets;
using session::infoJson;
using session::sheetCount;
}  // namespace tool

#endif
