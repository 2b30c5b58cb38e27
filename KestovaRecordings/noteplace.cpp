#include "KestovaRecordings/noteplace.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fmt/format.h>
#include <vector>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/recordinglist.h"

namespace recordings
{
namespace
{
std::uint64_t nowMs()
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

bool isUnderWay(const tListedFile& one)
{
    return one.state == eRecordingState::eRecording;
}

tListedRecording recordingAt(const std::string& path, const std::string& suffix)
{
    tListOptions options;
    options.suffix = suffix;
    tRecordingList list = listRecordings({path}, options);
    if (list.recordings.size() == 1)
        return std::move(list.recordings.front());
    if (list.recordings.empty())
        throw list.leftOut.empty() ? tFailure(fmt::format("{}: holds no recording", path)) : nothingLeft(list.leftOut);
    const auto underWay = std::count_if(list.recordings.begin(), list.recordings.end(), isUnderWay);
    if (underWay != 1)
        throw tFailure(fmt::format("{}: {} of its {} recordings are under way: name the one that is meant", path,
                                   underWay, list.recordings.size()));
    return *std::find_if(list.recordings.begin(), list.recordings.end(), isUnderWay);
}

// Returns the file under way if `timeMs` is now, otherwise the one that has the time.
std::string fileWith(const std::vector<tListedFile>& files, std::optional<std::uint64_t> timeMs)
{
    const tListedFile* found = &files.front();
    for (const tListedFile& file : files)
        if (timeMs ? file.records != 0 && file.firstMs <= *timeMs : isUnderWay(file))
            found = &file;
    return found->path;
}
}  // namespace

tNotePlace findNotePlace(const std::string& path, const std::optional<tMoment>& at, const std::string& suffix)
{
    const tListedRecording recording = recordingAt(path, suffix);
    std::vector<tListedFile> files{recording};
    if (std::filesystem::is_directory(recording.path))
        files = listDataFiles(recording.path, suffix);
    if (files.empty())
        throw tFailure(fmt::format("{}: is gone", recording.path));
    const bool isNow = isUnderWay(recording) || recording.records == 0;
    const std::uint64_t now = nowMs();
    if (!at)
        return isNow ? tNotePlace{fileWith(files, std::nullopt), now}
                     : tNotePlace{fileWith(files, recording.firstMs), recording.firstMs};
    const std::uint64_t last = isNow ? std::max(now, recording.lastMs) : recording.lastMs;
    const double timeMs = at->resolve(recording.firstMs, last);
    if (recording.records == 0 || timeMs < static_cast<double>(recording.firstMs) || timeMs > static_cast<double>(last))
        throw tFailure(fmt::format("{}: the place lies outside the recording", recording.path));
    const auto whole = static_cast<std::uint64_t>(timeMs);
    return {fileWith(files, whole), whole};
}
}  // namespace recordings
