// tRecordedClock: where a replay is on the clock of its recording, in silences too.
#ifndef KESTOVA_SESSIONS_REPLAY_RECORDEDCLOCK_H
#define KESTOVA_SESSIONS_REPLAY_RECORDEDCLOCK_H

#include <chrono>
#include <cstdint>

namespace session
{
// Times of recordings are in ms. Times of this machine are steady and given from outside. One thread at a time.
class tRecordedClock
{
public:
    using tTime = std::chrono::steady_clock::time_point;

    void set(std::uint64_t recordedMs, tTime now)
    {
        m_recordedMs = static_cast<double>(recordedMs);
        m_since = now;
    }
    void setSpeed(double factor, tTime now)
    {
        advance(now);
        m_factor = factor;
    }
    void setPaused(bool paused, tTime now)
    {
        advance(now);
        m_paused = paused;
    }
    std::uint64_t at(tTime now) const { return static_cast<std::uint64_t>(exactly(now)); }

private:
    double exactly(tTime now) const
    {
        const std::chrono::duration<double, std::milli> passed = now - m_since;
        return m_paused ? m_recordedMs : m_recordedMs + passed.count() * m_factor;
    }
    void advance(tTime now)
    {
        m_recordedMs = exactly(now);
        m_since = now;
    }

    double m_recordedMs = 0.0;  // at m_since
    tTime m_since{};
    double m_factor = 1.0;
    bool m_paused = false;
};
}  // namespace session

#endif
