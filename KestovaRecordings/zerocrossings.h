// tZeroCrossings: where one turn of the antenna ends and the next one begins.
#ifndef KESTOVA_RECORDINGS_ZEROCROSSINGS_H
#define KESTOVA_RECORDINGS_ZEROCROSSINGS_H

#include <cmath>

namespace recordings
{
// Where the antenna goes over bearing 0, whichever way it turns. One that swings to and fro over 0 begins no other turn
// before it has turned by half. One thread at a time.
class tZeroCrossings
{
public:
    // Takes the bearing of the next spoke. Returns whether a turn ended before it.
    bool goTo(double bearing)
    {
        if (!m_begun)
        {
            m_begun = true;
            m_last = bearing;
            return false;
        }
        const double ahead = std::remainder(bearing - m_last, 1.0);  // -0.5 to 0.5 of a turn
        const bool crosses = ahead > 0 ? bearing < m_last : bearing > m_last;
        m_last = bearing;
        m_turned += ahead;
        if (!crosses || (m_crossed && std::abs(m_turned) < cLeast))
            return false;
        m_crossed = true;
        m_turned = 0;
        return true;
    }

private:
    static constexpr double cLeast = 0.5;  // of a turn, between two crossings

    bool m_begun = false, m_crossed = false;
    double m_last = 0, m_turned = 0;  // since the last crossing
};
}  // namespace recordings

#endif
