// tPace: how fast a recording is played, and the next speeds for keys.
#ifndef KESTOVA_SESSIONS_REPLAY_PACE_H
#define KESTOVA_SESSIONS_REPLAY_PACE_H

namespace session
{
class tPace
{
public:
    static constexpr double cSlowest = 0.001, cFastest = 1e6;  // of the storage engine

    explicit tPace(double factor) : m_factor(factor) {}
    double factor() const { return m_factor; }  // recorded time over playing time

    // Return the next one of 1/10 to 1/2, 1 to 10, 20, 50, ..., 1000; the same beyond both ends.
    tPace faster() const
    {
        for (const double step : cSteps)
            if (step > m_factor * (1.0 + cSame))
                return tPace(step);
        return *this;
    }
    tPace slower() const
    {
        double found = m_factor;
        for (const double step : cSteps)
            if (step < m_factor * (1.0 - cSame))
                found = step;
        return tPace(found);
    }

private:
    static constexpr double cSame = 1e-9;
    static constexpr double cSteps[] = {
        1.0 / 10, 1.0 / 9, 1.0 / 8, 1.0 / 7, 1.0 / 6, 1.0 / 5, 1.0 / 4, 1.0 / 3, 1.0 / 2, 1,   2,   3,   4,
        5,        6,       7,       8,       9,       10,      20,      50,      100,     200, 500, 1000};
    double m_factor;
};
}  // namespace session

#endif
