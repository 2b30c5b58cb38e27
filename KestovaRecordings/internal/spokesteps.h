// tSpokeSteps: spokes that are missing between two of them.
#ifndef KESTOVA_RECORDINGS_INTERNAL_SPOKESTEPS_H
#define KESTOVA_RECORDINGS_INTERNAL_SPOKESTEPS_H

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>

#include "KestovaRecordings/spoke.h"

namespace recordings
{
// Goes by the numbers of spokes or, where they have none, by their bearings: a step that is much wider than the mean of
// those before. One thread at a time.
class tSpokeSteps
{
public:
    // Takes the next spoke of a stream. Returns how many are missing before it.
    std::uint32_t next(const tSpoke& spoke)
    {
        const bool isNumbered = spoke.sequence && m_number && *spoke.sequence > *m_number;
        const double step = isNumbered ? static_cast<double>(*spoke.sequence - *m_number)
                                       : std::abs(std::remainder(spoke.bearingFrom - m_bearing, 1.0));
        const bool isFirst = !m_begun || isNumbered != m_isNumbered || (spoke.sequence && !isNumbered);
        m_begun = true;
        m_isNumbered = isNumbered;
        m_number = spoke.sequence;
        m_bearing = spoke.bearingFrom;
        if (isFirst || m_mean == 0)
        {
            m_mean = isFirst ? 0 : step;
            return 0;
        }
        return missingIn(step);
    }

private:
    static constexpr double cMost = 65'536, cWide = 1.8, cShare = 0.125;
    static constexpr int cAccepted = 8;  // wide steps in a row are how the radar sends

    std::uint32_t missingIn(double step)
    {
        const bool isWide = step > cWide * m_mean;
        m_wide = isWide ? m_wide + 1 : 0;
        if (isWide && m_wide < cAccepted)
            return static_cast<std::uint32_t>(std::min(std::round(step / m_mean) - 1, cMost));
        m_mean = isWide ? step : m_mean + cShare * (step - m_mean);
        return 0;
    }

    bool m_begun = false, m_isNumbered = false;
    std::optional<std::uint64_t> m_number;
    double m_bearing = 0, m_mean = 0;
    int m_wide = 0;
};
}  // namespace recordings

#endif
