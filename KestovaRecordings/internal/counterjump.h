// isRestart: whether a counter that wraps began anew.
#ifndef KESTOVA_RECORDINGS_INTERNAL_COUNTERJUMP_H
#define KESTOVA_RECORDINGS_INTERNAL_COUNTERJUMP_H

#include <algorithm>
#include <cstdint>

namespace recordings
{
constexpr std::uint64_t cLateNumbers = 1024;  // a number further behind is no late one

// `last` is the highest number so far, `mask` the counter's highest one. A jump back is a restart; so is one that would
// be a wrap with more numbers missing than can come late.
inline bool isRestart(std::uint64_t number, std::uint64_t last, std::uint64_t mask)
{
    const std::uint64_t ahead = (number - last) & mask, behind = (last - number) & mask;
    const std::uint64_t window = std::min(cLateNumbers, mask / 4 + 1);
    return ahead > behind ? behind >= window : number < last && ahead > window;
}
}  // namespace recordings

#endif
