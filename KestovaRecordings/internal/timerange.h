// The records of some data files within a span of time.
#ifndef KESTOVA_RECORDINGS_TIMERANGE_H
#define KESTOVA_RECORDINGS_TIMERANGE_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "KestovaStorage/datafile.h"
#include "KestovaStorage/radarmsgpackage.h"

namespace recordings
{
using tVisitRecord = std::function<void(storage::tDataFile& file, std::size_t record)>;

// Calls `visit` for every record from `fromMs` to `toMs`, both included: file after file, in the order of their first
// records of the span, and in the order of recording. One that a recorder has compressed meanwhile is read in that
// form.
void forEachRecord(const std::vector<std::string>& files, const std::string& suffix, std::uint64_t fromMs,
                   std::uint64_t toMs, const tVisitRecord& visit);

// Returns the kind of the package that a record is; nothing if it is none.
std::optional<tReadWriteType> kindOf(storage::tDataFile& file, std::size_t record);
}  // namespace recordings

#endif
