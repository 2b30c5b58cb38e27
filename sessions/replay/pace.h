// tPace: the speeds of the storage engine: whole multiples up to 10, and 1/2 down to 1/11.
#ifndef KESTOVA_SESSIONS_REPLAY_PACE_H
#define KESTOVA_SESSIONS_REPLAY_PACE_H

#include <algorithm>

namespace session
{
class tPace
{
public:
    // Returns the pace that the engine plays for `speed`, which is more than 0.
    static tPace of(double speed)
    {
        return tPace(speed >= 1.0 ? static_cast<int>(std::min(speed, 10.0)) - 1
                                  : -static_cast<int>(std::min(1.0 / speed, 10.0)));
    }
    tPace faster() const { return tPace(std::min(m_step + 1, 9)); }
    tPace slower() const { return tPace(std::max(m_step - 1, -10)); }
    // Returns recorded time over playing time.
    double factor() const { return m_step >= 0 ? m_step + 1.0 : 1.0 / (1.0 - m_step); }
    // Returns the argument of FastSlowForward for this pace, in the middle of the range that rounds to it.
    double rate() const { return m_step >= 0 ? m_step + 1.0 : 1.0 / (0.5 - m_step); }

private:
    explicit tPace(int step) : m_step(step) {}
    int m_step;  // 0: the recorded pace, 9: ten times, -1: a half, -10: an eleventh
};
}  // namespace session

#endif
