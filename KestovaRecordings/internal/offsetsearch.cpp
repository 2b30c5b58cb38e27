#include "KestovaRecordings/internal/offsetsearch.h"

#include <algorithm>
#include <cstdlib>

namespace recordings
{
namespace
{
constexpr std::size_t cMessages = 4096, cBytes = 4 << 20;  // of a beginning
constexpr std::size_t cMostVotes = 64;
constexpr std::ptrdiff_t cEnoughVotes = 3;
constexpr std::int64_t cNear_us = 1'000'000;
constexpr std::chrono::milliseconds cWait{100};
constexpr std::uint64_t cSteps = 4096;  // between two looks at `goOn`
}  // namespace

// Waits for the next message of a side. Returns false at its end, and if the search is cancelled.
bool tOffsetSearch::next(eSide side)
{
    if (++m_steps % cSteps == 0 && !m_goOn())
        m_cancelled = true;
    while (!m_cancelled && !m_feeds[side]->wait(cWait))
    {
        if (m_feeds[side]->atEnd())
            return false;
        m_cancelled = !m_goOn();
    }
    return !m_cancelled;
}

std::uint64_t tOffsetSearch::key(eSide side) const
{
    const tMessage& message = m_feeds[side]->message();
    return m_content.hash(message.bytes, message.stream);
}

void tOffsetSearch::readBeginning(eSide side)
{
    tBeginning& beginning = m_beginnings[side];
    std::size_t bytes = 0;
    for (std::size_t i = 0; i < cMessages && bytes < cBytes && next(side); ++i, m_feeds[side]->advance())
    {
        const tMessage& message = m_feeds[side]->message();
        if (i == 0)
            m_firstUs[side] = message.timeUs;
        const auto [seen, isNew] = beginning.try_emplace(key(side), tSeen{message.timeUs});
        seen->second.once = isNew;
        bytes += message.bytes.size();
    }
}

std::optional<std::int64_t> tOffsetSearch::inBeginnings()
{
    readBeginning(eSideA);
    readBeginning(eSideB);
    std::vector<std::pair<std::int64_t, std::int64_t>> common;  // times in A, offsets
    for (const auto& [hash, seen] : m_beginnings[eSideA])
    {
        const auto found = m_beginnings[eSideB].find(hash);
        if (seen.once && found != m_beginnings[eSideB].end() && found->second.once)
            common.emplace_back(seen.timeUs, found->second.timeUs - seen.timeUs);
    }
    std::sort(common.begin(), common.end());
    for (const auto& [timeUs, offsetUs] : common)
        vote(offsetUs);
    return m_found;
}

std::optional<std::int64_t> tOffsetSearch::farther()
{
    for (bool more = true; more && !m_found && !m_cancelled;)
    {
        more = false;
        for (const eSide side : {eSideA, eSideB})
            if (next(side))
            {
                more = true;
                look(side);
                m_feeds[side]->advance();
            }
    }
    if (!m_found && !m_votes.empty())
        m_found = m_votes.front();
    return m_found;
}

void tOffsetSearch::look(eSide side)
{
    const tBeginning& other = m_beginnings[otherSide(side)];
    const auto found = other.find(key(side));
    if (found == other.end() || !found->second.once)
        return;
    const std::int64_t ownUs = m_feeds[side]->message().timeUs, otherUs = found->second.timeUs;
    vote(side == eSideA ? otherUs - ownUs : ownUs - otherUs);
}

void tOffsetSearch::vote(std::int64_t offsetUs)
{
    const auto agree = std::ranges::count_if(
        m_votes, [offsetUs](std::int64_t other) { return std::abs(other - offsetUs) <= cNear_us; });
    if (agree + 1 >= cEnoughVotes && !m_found)
        m_found = offsetUs;
    if (m_votes.size() < cMostVotes)
        m_votes.push_back(offsetUs);
    else
        m_votes[static_cast<std::size_t>(offsetUs) % cMostVotes] = offsetUs;
}
}  // namespace recordings
