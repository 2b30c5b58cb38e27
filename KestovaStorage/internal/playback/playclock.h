// tPlayClock: the play position as a function of time.
//
// The play position counts in segment keys (65,536 a millisecond). It moves in ticks: each adds one millisecond of the
// recording (a fast factor N: N milliseconds) and lasts one millisecond (a slow divisor M: 1 + M milliseconds; an exact
// speed S: 1 / S milliseconds). Tick times are absolute, however late a tick is noticed: playing neither drifts nor
// falls behind.
//
// Beside the ticks the position moves without steps, for segments whose time is known to the microsecond: it begins
// where playing starts, and such a segment is due when this exact position has reached its time.
//
// Threads  none; the owner's lock guards it. Times are steady and given from outside.
#ifndef KESTOVA_STORAGE_PLAYBACK_PLAYCLOCK_H
#define KESTOVA_STORAGE_PLAYBACK_PLAYCLOCK_H

#include <chrono>
#include <cstdint>
#include <optional>

namespace storage
{
struct tReplaySpeed
{
    std::uint64_t step_ms = 1;  // of the recording, that a tick adds
    double period_ms = 1.0;     // that a tick lasts
};
// Returns the speed in whole factors and divisors, 10 to 1/11.
tReplaySpeed speedFor(double rate);
// Returns exactly this speed, 0.001 to 1,000,000; nothing for any other.
std::optional<tReplaySpeed> exactSpeedFor(double speed);

// Returns the key at which to start for a fraction of the span from `first` to `last`. Fractions below 0 and above 1
// lead outside the span; NaN counts as 0.
std::uint64_t startKeyFor(double fraction, std::uint64_t first, std::uint64_t last);
// Returns the place of a key in the span, 0.0 to 1.0; 1.0 if the span is a single key.
double progressOf(std::uint64_t key, std::uint64_t first, std::uint64_t last);

class tPlayClock
{
public:
    using tTime = std::chrono::steady_clock::time_point;

    void start(std::uint64_t position, tTime now);  // speed and pause stay as they are
    void setSpeed(tReplaySpeed speed, tTime now);   // from the next tick on
    void setPaused(bool paused, tTime now);         // ticks begin anew when the pause ends
    bool paused() const { return m_paused; }

    std::uint64_t position(tTime now) const;
    // Returns when the position reaches `key`; a past time if it has. Only while not paused.
    tTime dueTime(std::uint64_t key) const;
    // The same of the exact position.
    std::uint64_t exactPosition(tTime now) const;
    tTime exactDueTime(std::uint64_t key) const;
    // Continues from `now`, so that segments delayed by a long stall are not played in a burst.
    void forgetDelay(tTime now, tTime due);

private:
    using tPeriod = std::chrono::duration<double, std::nano>;
    std::uint64_t step() const;
    tPeriod period() const;
    static tTime after(tTime time, tPeriod wait);
    std::uint64_t ticksSince(tTime now) const;
    tPeriod exactPeriod() const;
    void rebase(tTime now);

    tReplaySpeed m_speed;
    bool m_paused = false;
    std::uint64_t m_position = 0;  // at the tick due at m_tickTime
    tTime m_tickTime{};
    std::uint64_t m_exact = 0;  // the exact position at m_exactTime
    tTime m_exactTime{};
};
}  // namespace storage

#endif
