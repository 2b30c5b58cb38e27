// What writing and reading of sheets share: the schema, and the checksum of the checksums.
#ifndef KESTOVA_RECORDINGS_SHEETFORMAT_H
#define KESTOVA_RECORDINGS_SHEETFORMAT_H

#include <cstddef>
#include <cstdint>

#include "KestovaRecordings/sheet.h"
#include "KestovaStorage/datafileformat.h"

namespace recordings
{
constexpr char cSheetSchemas[] = "kestova/recording/";     // of all versions
constexpr char cLaterVersion[] = "is of a later version";  // begins why such a sheet is not read
constexpr char cSheetSchema[] = "kestova/recording/1";

// No file has more records; neither has a sheet more blocks, or seconds with messages.
constexpr std::size_t cMostRecords = storage::cIndexCapacity;
// What a sheet lists otherwise, each: streams, notes, lost joins, steps of the clock, silences.
constexpr std::size_t cMostEntries = 100'000;

// Returns a checksum of the head's, the fine times' and the blocks' ones, so that damage to a sheet is not taken for
// damage to its file.
std::uint32_t sumOfSums(const tSheet& sheet);
}  // namespace recordings

#endif
