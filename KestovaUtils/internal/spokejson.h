// The key "spoke" of a parsed directory.
#ifndef KESTOVA_UTILS_SPOKEJSON_H
#define KESTOVA_UTILS_SPOKEJSON_H

#include <vector>

#include "KestovaUtils/internal/directoryjson.h"
#include "KestovaUtils/spokelayout.h"

namespace utils
{
// Throws tDirectoryError, which names the key below "spoke".
std::vector<tSpokeLayout> spokeLayoutsIn(const nlohmann::json& value);
}  // namespace utils

#endif
