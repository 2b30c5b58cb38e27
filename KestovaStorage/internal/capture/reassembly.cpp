#include "KestovaStorage/internal/capture/reassembly.h"

#include <utility>

#include "KestovaStorage/internal/capture/captureformat.h"

namespace pcap
{
void tReassembly::begin(std::uint16_t id, const tPiece& piece)
{
    forget(id);
    forgetAllBeyondLimit(piece);
    if (m_spare.empty())
        m_spare = m_pending.extract(m_pending.try_emplace(id).first);
    m_spare.key() = id;
    m_spare.mapped().bytes.clear();
    m_spare.mapped().givenUp = false;
    m_total += m_spare.mapped().bytes.capacity();
    grow(m_pending.insert(std::move(m_spare)).position->second, piece);
}

void tReassembly::forget(std::uint16_t id)
{
    const auto place = m_pending.find(id);
    if (place != m_pending.end())
        release(place);
}

bool tReassembly::append(std::uint16_t id, const tPiece& piece)
{
    const auto place = m_pending.find(id);
    if (place == m_pending.end())
        return false;
    if (!forgetAllBeyondLimit(piece))
        grow(place->second, piece);
    return true;
}

bool tReassembly::forgetAllBeyondLimit(const tPiece& piece)
{
    if (m_total + piece.claimed <= cTotalLimit)
        return false;
    m_pending.clear();
    m_total = 0;
    return true;
}

tReassembly::eEnd tReassembly::finish(std::uint16_t id, const tPiece& piece, std::string*& datagram)
{
    const auto place = m_pending.find(id);
    if (place == m_pending.end())
        return eEnd::eUnknown;
    const std::size_t before = place->second.bytes.size();
    if (before >= sizeof(tUDPHeader))
        grow(place->second, piece);
    const bool lost = place->second.givenUp || before < sizeof(tUDPHeader);
    release(place);
    datagram = &m_spare.mapped().bytes;
    return !lost ? eEnd::eWhole : before == 0 && !m_spare.mapped().givenUp ? eEnd::eEmpty : eEnd::eLost;
}

void tReassembly::grow(tPending& pending, const tPiece& piece)
{
    m_total -= pending.bytes.capacity();
    pending.givenUp = pending.givenUp || pending.bytes.size() + piece.claimed > cDatagramLimit;
    if (pending.givenUp)
        std::string().swap(pending.bytes);
    else
        piece.appendTo(pending.bytes);
    m_total += pending.bytes.capacity();
}

void tReassembly::release(tPendingMap::iterator place)
{
    m_total -= place->second.bytes.capacity();
    m_spare = m_pending.extract(place);
}
}  // namespace pcap
