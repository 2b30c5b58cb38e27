// The unit of play order, play position and span: a time in ms shifted left by 16 bits, so that 65,536 segments of one
// millisecond keep keys of their own.
#ifndef KESTOVA_STORAGE_PLAYBACK_PLAYKEY_H
#define KESTOVA_STORAGE_PLAYBACK_PLAYKEY_H

#include <cstdint>

namespace storage
{
constexpr unsigned int cKeyTimeShift = 16;
constexpr std::uint64_t cKeysPerMs = std::uint64_t{1} << cKeyTimeShift;

constexpr std::uint64_t keyOfTime(std::uint64_t timeMs)
{
    return timeMs << cKeyTimeShift;
}
// The place of a time in microseconds: that of a segment which is due to the microsecond.
constexpr std::uint64_t exactKey(std::uint64_t timeMs, std::uint32_t us)
{
    return keyOfTime(timeMs) + us * cKeysPerMs / 1000;
}
constexpr std::uint64_t timeOfKey(std::uint64_t key)
{
    return key >> cKeyTimeShift;
}
}  // namespace storage

#endif
