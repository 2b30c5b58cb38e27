// How recording folders and data files are numbered and named: pure functions of a listing and a time.
//
//   root/Data_000003_2024.05.17/0001_2024-05-17_09-12-41_radar.data
//
// Texts that are no numbers count as 0; no function fails.
#ifndef KESTOVA_STORAGE_DATAFILE_NAMING_H
#define KESTOVA_STORAGE_DATAFILE_NAMING_H

#include <ctime>
#include <set>
#include <string>

#include "KestovaUtils/timeparser.h"

namespace storage::naming
{
using tPaths = std::set<std::string>;

unsigned int nextFolderNumber(const tPaths& entriesOfRoot);
unsigned int nextFileNumber(const tPaths& filesOfFolder, const std::string& suffix);

std::string folderName(unsigned int number, const std::string& dateLabel);  // without a "/"
std::string fileName(unsigned int number, const std::string& timeLabel, const std::string& extFileName,
                     const std::string& suffix);

// "rec/0003_2024-05-17_10-01-12_radar.data" with the suffix ".data" gives "...radar.tar.data". Only the last component
// of the path is changed: a folder may have the suffix in its name.
std::string compressedName(const std::string& plainPath, const std::string& suffix);
// The reverse; returns the path itself if it does not end so.
std::string plainName(const std::string& compressedPath, const std::string& suffix);

// Labels in local time.
std::string timeYmdHMSToString(std::time_t seconds);  // 2024-05-17_08-30-00
std::string timeYmdToString(std::time_t seconds);     // 2024.05.17
std::string timeSecToString(std::time_t seconds);     // elapsed time: 0001_05_09

// Returns the label of a folder (withTime false) or a file. `timestamp` in ms; 0 means `now`, in seconds. While the
// clock is not set (before November 2022) the label is the time since `startTime`, which is set at the first such call.
std::string storageTimLabel(tTimes_ms timestamp, bool withTime, tTimes_s now, tTimes_s& startTime);
}  // namespace storage::naming

#endif
