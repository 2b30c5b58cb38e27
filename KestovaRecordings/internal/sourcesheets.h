// What the sheets of the source files say about a new recording: where it comes from, what was lost, what was noted.
#ifndef KESTOVA_RECORDINGS_INTERNAL_SOURCESHEETS_H
#define KESTOVA_RECORDINGS_INTERNAL_SOURCESHEETS_H

#include <cstdint>
#include <functional>

#include "KestovaRecordings/internal/inputfiles.h"
#include "KestovaRecordings/sheet.h"

namespace recordings
{
struct tSourceSpan
{
    std::uint64_t fromMs = 0, toMs = UINT64_MAX;             // of what is taken; the end is excluded
    std::function<std::int64_t(const tInputFile&)> shiftMs;  // by which its times are moved
};

// Returns the sheet of a new recording as far as it does not follow from its records. What its sources agree on stays:
// recorder, radar, interface, source of the clock. Notes, steps of the clock and lost joins are those of the span.
// Counts of losses are those of the files that lie in the span as a whole: of others nobody knows which part has them.
tSheet sheetFrom(const tInputFiles& inputs, const tSourceSpan& span);

// Returns the notes of a sheet from `fromMs` on and before `toMs`.
std::vector<tNote> notesBetween(const std::vector<tNote>& notes, std::uint64_t fromMs, std::uint64_t toMs);

// Returns whether a sheet describes every record of its file, of which `records` are there.
bool coversFile(const tFoundSheet& found, std::uint64_t records);
}  // namespace recordings

#endif
