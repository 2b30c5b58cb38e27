// Messages of each second: added as they come, put in order at the end.
#ifndef KESTOVA_RECORDINGS_INTERNAL_PERSECOND_H
#define KESTOVA_RECORDINGS_INTERNAL_PERSECOND_H

#include <algorithm>
#include <cstdint>
#include <limits>

#include "KestovaRecordings/sheet.h"

namespace recordings
{
inline void countSecond(tPerSecond& seconds, std::uint64_t second, std::uint32_t messages = 1)
{
    constexpr std::uint32_t cMost = std::numeric_limits<std::uint32_t>::max();
    if (!seconds.empty() && seconds.back().first == second)
        seconds.back().second += std::min(messages, cMost - seconds.back().second);
    else
        seconds.emplace_back(second, messages);
}

// Puts them in ascending order, each second once.
inline void putInOrder(tPerSecond& seconds)
{
    const auto isEarlier = [](const auto& a, const auto& b) { return a.first < b.first; };
    const auto isNotLater = [](const auto& a, const auto& b) { return a.first >= b.first; };
    if (std::adjacent_find(seconds.begin(), seconds.end(), isNotLater) == seconds.end())
        return;
    std::stable_sort(seconds.begin(), seconds.end(), isEarlier);
    tPerSecond merged;
    for (const auto& [second, messages] : seconds)
        countSecond(merged, second, messages);
    seconds = std::move(merged);
}

inline void addSeconds(tPerSecond& to, const tPerSecond& more)
{
    for (const auto& [second, messages] : more)
        countSecond(to, second, messages);
    putInOrder(to);
}
}  // namespace recordings

#endif
