#include "KestovaStorage/internal/replay/spokebuffer.h"

#include <algorithm>
#include <utility>

namespace Kestova
{
void tSpokeBuffer::append(tSpokeString spoke)
{
    if (!m_spokes.empty() && spoke.azm < m_spokes.back().azm)
    {
        dropFront(m_revolution);  // the revolution before the one that has just become complete
        m_revolution = m_spokes.size();
    }
    m_bytes += spoke.spoke.size();
    m_spokes.push_back(std::move(spoke));
    while (m_spokes.size() > cMaxSpokes || m_bytes > cMaxBytes)
        dropFront(1);
}

void tSpokeBuffer::dropFront(std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i)
    {
        m_bytes -= m_spokes.front().spoke.size();
        m_spokes.pop_front();
    }
    m_revolution -= std::min(m_revolution, count);
}
}  // namespace Kestova
