// What the sheets of a recording say before anything is recorded.
#ifndef KESTOVA_SESSIONS_RECORD_SHEETFACTS_H
#define KESTOVA_SESSIONS_RECORD_SHEETFACTS_H

#include "KestovaRecordings/sheet.h"

namespace session
{
struct tRecordOptions;

// Returns a sheet with recorder, host, source of the times and, of a radar, its addresses and the layout
// of its spokes. Throws tFailure if the radar
// cannot be found.
recordings::tSheet sheetFacts(const tRecordOptions& options);
// The same for the import of a capture.
recordings::tSheet importedSheetFacts();
// The same for messages whose times somebody else gives.
recordings::tSheet writtenSheetFacts();
}  // namespace session

#endif
