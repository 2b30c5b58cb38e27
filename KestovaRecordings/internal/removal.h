// Removing a recording's folder: one rename hides it, then its files go.
//
// Names    ".pruned.N.NAME" beside NAME. Whoever finds such a folder may remove it, at any time.
// Threads  any; several processes at once.
#ifndef KESTOVA_RECORDINGS_INTERNAL_REMOVAL_H
#define KESTOVA_RECORDINGS_INTERNAL_REMOVAL_H

#include <string>
#include <string_view>
#include <vector>

#include "common/status.h"

namespace recordings
{
// Returns why nothing may delete the data file: "is being recorded", "is being played", "is kept"; empty for no reason.
std::string obstacle(const std::string& dataFile);
// The same for the data files of a folder: the first reason that one of them has.
std::string obstacleIn(const std::string& folder, const std::string& suffix);

// Hides the folder NAME of the root (which ends with "/") and removes the data files in it with what goes with them. A
// folder with other files comes back with those. Refuses, with the reason, what has an obstacle.
tStatus removeRecording(const std::string& root, const std::string& name, const std::string& suffix);

bool isLeftover(std::string_view name);
// Does what is left to do for a hidden folder of the root.
tStatus clearLeftover(const std::string& root, const std::string& hidden, const std::string& suffix);
}  // namespace recordings

#endif
