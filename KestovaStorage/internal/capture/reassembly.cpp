#include "KestovaStorage/internal/capture/reassembly.h"

#include <utility>

#include "KestovaStorage/internal/capture/captureformat.h"

namespace pcap
{
void tReassembly::begin(std::uint16_t id, const tFragment& fragment)
{
    drop(id);
    dropAllBeyondLimit(fragment);
    if (m_spare.empty())
        m_spare = m_pending.extract(m_pending.try_emplace(id).first);
    m_spare.key() = id;
    m_spare.mapped().bytes.clear();
    m_spare.mapped().abandoned = false;
    m_total += m_spare.mapped().bytes.capacity();
    grow(m_pending.insert(std::move(m_spare)).position->second, fragment);
}

void tReassembly::drop(std::uint16_t id)
{
    const auto place = m_pending.find(id);
    if (place != m_pending.end())
        release(place);
}

bool tReassembly::append(std::uint16_t id, const tFragment& fragment)
{
    const auto place = m_pending.find(id);
    if (place == m_pending.end())
        return false;
    if (!dropAllBeyondLimit(fragment))
        grow(place->second, fragment);
    return true;
}

bool tReassembly::dropAllBeyondLimit(const tFragment& fragment)
{
    if (m_total + fragment.claimed <= cTotalLimit)
        return false;
    m_pending.clear();
    m_total = 0;
    return true;
}

tReassembly::eOutcome tReassembly::finish(std::uint16_t id, const tFragment& fragment, std::string*& datagram)
{
    const auto place = m_pending.find(id);
    if (place == m_pending.end())
        return eOutcome::eUnknown;
    const std::size_t before = place->second.bytes.size();
    if (before >= sizeof(tUDPHeader))
        grow(place->second, fragment);
    const bool lost = place->second.abandoned || before < sizeof(tUDPHeader);
    release(place);
    datagram = &m_spare.mapped().bytes;
    return !lost ? eOutcome::eWhole : before == 0 && !m_spare.mapped().abandoned ? eOutcome::eEmpty : eOutcome::eLost;
}

void tReassembly::grow(tPending& pending, const tFragment& fragment)
{
    m_total -= pending.bytes.capacity();
    pending.abandoned = pending.abandoned || pending.bytes.size() + fragment.claimed > cDatagramLimit;
    if (pending.abandoned)
        std::string().swap(pending.bytes);
    else
        fragment.appendTo(pending.bytes);
    m_total += pending.bytes.capacity();
}

void tReassembly::release(tPendingMap::iterator place)
{
    m_total -= place->second.bytes.capacity();
    m_spare = m_pending.extract(place);
}
}  // namespace pcap
