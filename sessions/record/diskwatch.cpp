#include "sessions/record/diskwatch.h"

namespace session
{
namespace
{
using namespace std::chrono_literals;

constexpr std::uint64_t cLowBytes = 1ull << 30;
constexpr std::uint64_t cShortSeconds = 3600;

// Sets the state of a warning. Returns whether it begins; it ends a quarter above its limit, so that it does not
// flicker.
bool falls(bool& below, std::uint64_t value, std::uint64_t limit)
{
    const bool before = below;
    below = value < limit || (before && value < limit + limit / 4);
    return below && !before;
}
}  // namespace

std::optional<tDiskLeft> tDiskWatch::update(std::uint64_t freeBytes, std::uint64_t recordedBytes, tTime now)
{
    tDiskLeft left{freeBytes, rate(recordedBytes, now), std::nullopt};
    if (left.bytesPerSecond > 0.0)
        left.seconds = static_cast<std::uint64_t>(static_cast<double>(freeBytes) / left.bytesPerSecond);
    const bool becomesLow = falls(m_isLow, freeBytes, cLowBytes);
    const bool becomesShort = left.seconds && falls(m_isShort, *left.seconds, cShortSeconds);
    return becomesLow || becomesShort ? std::optional(left) : std::nullopt;
}

// Returns 0 for the first three seconds, in which a burst would look like a rate.
double tDiskWatch::rate(std::uint64_t recordedBytes, tTime now)
{
    m_samples.push_back({now, recordedBytes});
    while (now - m_samples.front().time > 10s)
        m_samples.pop_front();
    const tSample& first = m_samples.front();
    if (now - first.time < 3s)
        return 0.0;
    return static_cast<double>(recordedBytes - first.bytes) / std::chrono::duration<double>(now - first.time).count();
}
}  // namespace session
