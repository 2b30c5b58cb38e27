// tTurnCover: how much of a turn there is.
#ifndef KESTOVA_RECORDINGS_INTERNAL_TURNCOVER_H
#define KESTOVA_RECORDINGS_INTERNAL_TURNCOVER_H

#include <cmath>
#include <cstdint>

namespace recordings
{
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
