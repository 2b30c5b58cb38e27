// surveyRecordings: what lies below some paths, as far as the indexes of the files tell, before it is read.
#ifndef KESTOVA_RECORDINGS_SURVEY_H
#define KESTOVA_RECORDINGS_SURVEY_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "KestovaRecordings/activity.h"
#include "KestovaRecordings/archive.h"
#include "KestovaRecordings/streamchoice.h"
#include "KestovaRecordings/streamcounts.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
struct tSurvey
{
    std::vector<std::string> files;         // data files that can be read, each once
    std::vector<tLeftOut> leftOut;          // paths without any, and files that cannot be read
    std::uint64_t records = 0;              // whole ones
    std::uint64_t damaged = 0;              // index records left out
    std::uint64_t firstMs = 0, lastMs = 0;  // of all records; 0 for none
    std::vector<tGap> silences;             // of everything, in order of time
};

// Opens every file below the paths, one after the other. Silences are those longer than `silenceMs`. Throws tFailure if
// none of the files can be read. Any thread.
KESTOVA_API tSurvey surveyRecordings(const std::vector<std::string>& paths, const std::string& suffix,
                                     std::uint64_t silenceMs = cSilenceMs);

// Reads the packages of the files and calls `goOn` with each stream when its first package is met, until that returns
// false. Files that cannot be read are left out.
KESTOVA_API void findStreams(const std::vector<std::string>& files, const std::function<bool(const tStreamKey&)>& goOn);

// Throws tFailure, with the names of the streams that are there, if the files hold none of the chosen ones. Reads up to
// the first of them.
KESTOVA_API void requireStreams(const std::vector<std::string>& files, const tStreamChoice& choice);
}  // namespace recordings

#endif
