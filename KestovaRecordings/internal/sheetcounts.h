// countsFromSheet: what a sheet says about its file, in the form that counting gives.
#ifndef KESTOVA_RECORDINGS_INTERNAL_SHEETCOUNTS_H
#define KESTOVA_RECORDINGS_INTERNAL_SHEETCOUNTS_H

#include "KestovaRecordings/internal/filecounter.h"
#include "KestovaRecordings/sheet.h"

namespace recordings
{
// Adds records, times, streams and activity. A silence of a stream that the sheet does not list is known to the second.
void countFromSheet(const tSheet& sheet, const tFileCountOptions& options, tCountedFile& to);
}  // namespace recordings

#endif
