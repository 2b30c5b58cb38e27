// The member "skipped" of results: what was left out, and why.
#ifndef KESTOVA_SESSIONS_REPORT_LEFTOUTJSON_H
#define KESTOVA_SESSIONS_REPORT_LEFTOUTJSON_H

#include <vector>

#include "KestovaRecordings/archive.h"
#include "sessions/report/json.h"

namespace session
{
// Returns "path", "reason" for each.
tJson leftOutJson(const std::vector<recordings::tLeftOut>& leftOut);
}  // namespace session

#endif
