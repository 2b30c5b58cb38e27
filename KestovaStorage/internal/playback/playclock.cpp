#include "KestovaStorage/internal/playback/playclock.h"

#include <algorithm>
#include <cmath>

#include "KestovaStorage/internal/playback/playkey.h"

namespace storage
{
namespace
{
constexpr std::chrono::duration<double, std::nano> cFar{1e18};  // 31 years: limits the wait
constexpr double cSlowest = 0.001, cFastest = 1e6;

std::uint64_t saturatedAdd(std::uint64_t a, std::uint64_t b)
{
    return a > UINT64_MAX - b ? UINT64_MAX : a + b;
}

std::uint64_t saturatedSubtract(std::uint64_t a, std::uint64_t b)
{
    return a < b ? 0 : a - b;
}
}  // namespace

tReplaySpeed speedFor(double rate)
{
    if (std::isnan(rate) || rate == 1.0)
        return {};
    if (rate > 10.0)
        return {10, 1.0};
    if (rate < 0.1)
        return {1, 1.0 + 10};
    if (rate > 1.0)
        return {static_cast<std::uint64_t>(rate), 1.0};
    return {1, 1.0 + std::trunc(1.0 / rate)};
}

std::optional<tReplaySpeed> exactSpeedFor(double speed)
{
    if (!(speed >= cSlowest && speed <= cFastest))
        return std::nullopt;
    return tReplaySpeed{1, 1.0 / speed};
}

// The fraction becomes a whole number of keys before it is added: a double has too few digits for the sum.
std::uint64_t startKeyFor(double fraction, std::uint64_t first, std::uint64_t last)
{
    if (std::isnan(fraction))
        return first;
    const std::uint64_t span = last - first;
    const double magnitude = std::fabs(fraction) * static_cast<double>(span);
    constexpr double cTwoTo64 = 18446744073709551616.0;
    std::uint64_t keys = magnitude < cTwoTo64 ? static_cast<std::uint64_t>(magnitude) : UINT64_MAX;
    if (std::fabs(fraction) <= 1.0)
        keys = std::min(keys, span);
    return fraction < 0 ? saturatedSubtract(first, keys) : saturatedAdd(first, keys);
}

double progressOf(std::uint64_t key, std::uint64_t first, std::uint64_t last)
{
    if (last <= first)
        return 1.0;
    return static_cast<double>(std::clamp(key, first, last) - first) / static_cast<double>(last - first);
}

// The first tick is due at once.
void tPlayClock::start(std::uint64_t position, tTime now)
{
    m_position = saturatedAdd(position, step());
    m_exact = position;
    m_tickTime = m_exactTime = now;
}

void tPlayClock::setSpeed(tReplaySpeed speed, tTime now)
{
    rebase(now);
    m_speed = speed;
    m_tickTime = std::max(m_tickTime, after(now, -period()));  // what passed of a longer tick counts as one at most
}

void tPlayClock::setPaused(bool paused, tTime now)
{
    if (paused == m_paused)
        return;
    if (paused)
        rebase(now);
    else
        m_tickTime = m_exactTime = now;
    m_paused = paused;
}

std::uint64_t tPlayClock::position(tTime now) const
{
    const std::uint64_t ticks = ticksSince(now);
    const std::uint64_t keys = ticks > UINT64_MAX / step() ? UINT64_MAX : ticks * step();
    return saturatedAdd(m_position, keys);
}

tPlayClock::tTime tPlayClock::dueTime(std::uint64_t key) const
{
    if (key <= m_position)
        return m_tickTime;
    const std::uint64_t missing = key - m_position;
    const std::uint64_t ticks = missing / step() + (missing % step() != 0 ? 1 : 0);
    return after(m_tickTime, std::min(period() * static_cast<double>(ticks), cFar));
}

std::uint64_t tPlayClock::exactPosition(tTime now) const
{
    if (m_paused || now <= m_exactTime)
        return m_exact;
    constexpr double cMost = 9e18;  // of keys: limits the conversion
    return saturatedAdd(m_exact, static_cast<std::uint64_t>(std::min((now - m_exactTime) / exactPeriod(), cMost)));
}

tPlayClock::tTime tPlayClock::exactDueTime(std::uint64_t key) const
{
    if (key <= m_exact)
        return m_exactTime;
    return after(m_exactTime, std::min(exactPeriod() * static_cast<double>(key - m_exact), cFar));
}

void tPlayClock::forgetDelay(tTime now, tTime due)
{
    m_tickTime += now - due;
    m_exactTime += now - due;
}

std::uint64_t tPlayClock::step() const
{
    return cKeysPerMs * m_speed.step_ms;
}

tPlayClock::tPeriod tPlayClock::period() const
{
    return std::chrono::duration<double, std::milli>(m_speed.period_ms);
}

// How long one key lasts.
tPlayClock::tPeriod tPlayClock::exactPeriod() const
{
    return period() / static_cast<double>(step());
}

// Rounded up: what is due has come.
tPlayClock::tTime tPlayClock::after(tTime time, tPeriod wait)
{
    return time + std::chrono::ceil<tTime::duration>(wait);
}

std::uint64_t tPlayClock::ticksSince(tTime now) const
{
    return m_paused || now <= m_tickTime ? 0 : static_cast<std::uint64_t>((now - m_tickTime) / period());
}

// Moves the base to the last tick that was due.
void tPlayClock::rebase(tTime now)
{
    const std::uint64_t ticks = ticksSince(now);
    m_exact = exactPosition(now);
    m_exactTime = std::max(m_exactTime, now);
    m_position = position(now);
    m_tickTime = after(m_tickTime, period() * static_cast<double>(ticks));
}
}  // namespace storage
