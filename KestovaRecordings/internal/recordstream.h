// The stream of a record, from its head and its end mark alone if its segment is long.
#ifndef KESTOVA_RECORDINGS_INTERNAL_RECORDSTREAM_H
#define KESTOVA_RECORDINGS_INTERNAL_RECORDSTREAM_H

#include <cstddef>
#include <optional>

#include "KestovaRecordings/streamcounts.h"
#include "KestovaStorage/datafile.h"

namespace recordings
{
// Returns tStreamKey::raw() for a segment that is no package, nothing if it cannot be read.
std::optional<tStreamKey> streamOf(storage::tDataFile& file, std::size_t record);
}  // namespace recordings

#endif
