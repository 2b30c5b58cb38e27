#include "KestovaRecordings/wireloss.h"

#include <algorithm>

#include "KestovaRecordings/internal/counterjump.h"

namespace recordings
{
void tWireLoss::add(std::uint64_t number, unsigned bits)
{
    const std::uint64_t mask = bits >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << bits) - 1;
    const std::uint64_t ahead = (number - m_last) & mask;
    const std::uint64_t behind = (m_last - number) & mask;
    if (!m_begun || isRestart(number, m_last, mask))
    {
        m_begun = true;
        m_missed.reset();
        m_last = number;
        m_unnumbered = 0;
    }
    else if (ahead > behind)
        comeLate(number);
    else if (ahead != 0)
        goOn(number, ahead, mask);
}

// A summary between may have taken a number: then nobody knows which one is missing, and none can come late.
void tWireLoss::goOn(std::uint64_t number, std::uint64_t steps, std::uint64_t mask)
{
    const std::uint64_t between = steps - 1;
    const std::uint64_t missed = between - std::min(between, m_unnumbered);
    m_missing += missed;
    if (steps >= cWindow)
        m_missed.reset();
    for (std::uint64_t back = 0; back < std::min(steps, cWindow); ++back)
        m_missed.set(((number - back) & mask) % cWindow, back != 0 && missed == between);
    m_last = number;
    m_unnumbered = 0;
}

void tWireLoss::comeLate(std::uint64_t number)
{
    if (!m_missed.test(number % cWindow))
        return;
    m_missed.reset(number % cWindow);
    --m_missing;
}
}  // namespace recordings
