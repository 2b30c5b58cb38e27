// findNotePlace: where a note on a recording goes.
#ifndef KESTOVA_RECORDINGS_NOTEPLACE_H
#define KESTOVA_RECORDINGS_NOTEPLACE_H

#include <cstdint>
#include <optional>
#include <string>

#include "KestovaRecordings/moment.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
struct tNotePlace
{
    std::string file;  // the data file that has the time
    std::uint64_t timeMs = 0;
};

// `path` is a data file, a recording's folder, or a folder of recordings: the one under way, or the only one. Without
// `at` the time is now for a recording under way, its beginning for any other; `at` is a place in the recording, whose
// end is now while it is under way. Throws tFailure if there is no such recording, more than one, or `at` lies outside.
// Any thread.
KESTOVA_API tNotePlace findNotePlace(const std::string& path, const std::optional<tMoment>& at,
                                     const std::string& suffix = ".data");
}  // namespace recordings

#endif
