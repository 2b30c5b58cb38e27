// The timeline of one or many recordings: rates of streams in columns of time, gaps, losses, notes.
#ifndef KESTOVA_SERVER_TIMELINE_H
#define KESTOVA_SERVER_TIMELINE_H

#include <cstdint>
#include <string>
#include <vector>

#include "server/answers.h"
#include "server/filefacts.h"

namespace server
{
struct tTimelineSpan
{
    std::uint64_t fromMs, toMs;  // the end excluded
    std::size_t columns;
};

// A recording, and what is known of its files.
struct tTimelineRecording
{
    std::string id;
    std::vector<tFileFactsPtr> files;
};

// Columns in which nothing was recorded are null. `cache` is asked for what is finer than the facts.
tJson timelineJson(const std::vector<tTimelineRecording>& recordings, const tTimelineSpan& span, tFactsCache& cache);
}  // namespace server

#endif
