// tZeroCrossings: where the antenna goes over bearing 0, and begins another turn; tTurnCover: how much of a turn there
// is.
#ifndef KESTOVA_RECORDINGS_INTERNAL_ZEROCROSSINGS_H
#define KESTOVA_RECORDINGS_INTERNAL_ZEROCROSSINGS_H

#include <cmath>
#include <cstdint>

namespace recordings
{
// An antenna that swings to and fro over 0 begins no other turn before it has turned by half.
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

// What the spokes since the last clear() cover, the last one as wide as the step before it.
class tTurnCover
{
public:
    // `missing` spokes lie between the last one and this one.
    void add(double bearing, std::uint32_t missing = 0)
    {
        const double step = m_begun ? std::abs(std::remainder(bearing - m_last, 1.0)) : 0;
        m_begun = true;
        m_last = bearing;
        m_swept += step;
        m_step = step / (missing + 1);
    }
    void clear() { *this = {}; }
    double covered() const { return m_swept + m_step; }  // of the turn

private:
    bool m_begun = false;
    double m_last = 0, m_swept = 0, m_step = 0;
};
}  // namespace recordings

#endif
