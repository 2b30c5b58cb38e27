// A recording as a row of `kestova ls --json`, and what sheets say as JSON.
#ifndef KESTOVA_SESSIONS_REPORT_LISTROW_H
#define KESTOVA_SESSIONS_REPORT_LISTROW_H

#include <vector>

#include "KestovaRecordings/recordinglist.h"
#include "KestovaRecordings/sheet.h"
#include "sessions/report/json.h"

namespace session
{
tJson listRow(const recordings::tListedRecording& recording);

tJson gapsJson(const std::vector<recordings::tGap>& gaps);
tJson notesJson(const std::vector<recordings::tNote>& notes);
tJson lossesJson(const recordings::tSheetLosses& losses);
}  // namespace session

#endif
