#include "KestovaRecordings/internal/messagenumbers.h"

#include "KestovaRecordings/internal/counterjump.h"

namespace recordings
{
std::uint32_t tMessageNumbers::next(std::optional<std::uint64_t> number, unsigned bits, std::uint32_t messages)
{
    const std::uint64_t mask = bits >= 64 || !number ? ~std::uint64_t{0} : (std::uint64_t{1} << bits) - 1;
    const std::uint64_t own = number.value_or(m_isBegun ? m_last + 1 : 0) & mask;
    const std::uint64_t ahead = (own - m_last) & mask, behind = (m_last - own) & mask;
    if (!m_isBegun || isRestart(own, m_last, mask))
    {
        m_isBegun = true;
        m_isConsecutive = m_isLate = false;
        m_first = static_cast<std::uint32_t>(own);
    }
    else if (ahead > behind || ahead == 0)
    {
        m_isConsecutive = false;
        m_isLate = true;
        return m_first - static_cast<std::uint32_t>(behind) * messages;
    }
    else
        goOn(ahead, messages);
    m_last = own;
    m_messages = messages;
    return m_first;
}

void tMessageNumbers::goOn(std::uint64_t steps, std::uint32_t messages)
{
    m_isConsecutive = steps == 1 && !m_isLate;
    m_isLate = false;
    m_first += m_messages + static_cast<std::uint32_t>(steps - 1) * messages;
}
}  // namespace recordings
