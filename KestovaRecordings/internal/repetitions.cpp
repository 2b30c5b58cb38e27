#include "KestovaRecordings/internal/repetitions.h"

#include <algorithm>
#include <cmath>

namespace recordings
{
void tRepetitions::add(tCandidate candidate)
{
    std::vector<tQueue>& equal = m_equal[candidate.hash];
    auto queue = std::find_if(equal.begin(), equal.end(),
                              [&](const tQueue& each) { return each.recording == candidate.recording; });
    if (queue == equal.end())
        queue = equal.insert(equal.end(), {candidate.recording, {}});
    queue->numbers.push_back(m_first + m_waiting.size());
    m_waiting.push_back(std::move(candidate));
}

bool tRepetitions::isDecidable() const
{
    return !m_waiting.empty() && (m_atEnd || m_waiting.size() >= cWaitingLimit ||
                                  m_waiting.back().timeMs - m_waiting.front().timeMs > 2 * m_toleranceMs);
}

bool tRepetitions::next(tCandidate& candidate)
{
    if (!isDecidable())
        return false;
    const auto equal = m_equal.find(m_waiting.front().hash);
    if (!m_waiting.front().repeats)
        decide(equal->second);
    if (std::all_of(equal->second.begin(), equal->second.end(),
                    [](const tQueue& each) { return each.numbers.empty(); }))
        m_equal.erase(equal);
    candidate = std::move(m_waiting.front());
    m_waiting.pop_front();
    ++m_first;
    return true;
}

// The first one stays; those of other recordings that repeat it are marked. What is marked waits in no queue any more.
void tRepetitions::decide(std::vector<tQueue>& equal)
{
    const std::size_t recording = m_waiting.front().recording;
    tQueue& own =
        *std::find_if(equal.begin(), equal.end(), [&](const tQueue& each) { return each.recording == recording; });
    for (tQueue& other : equal)
        if (&other != &own && isInReach(own, other, 0))
            match(own, other);
    own.numbers.erase(own.numbers.begin());
}

bool tRepetitions::isInReach(const tQueue& own, const tQueue& other, std::size_t place)
{
    return place < other.numbers.size() &&
           at(other.numbers[place]).timeMs - at(own.numbers.front()).timeMs <= m_toleranceMs;
}

void tRepetitions::match(tQueue& own, tQueue& other)
{
    const std::uint64_t first = own.numbers.front();
    tOffset& offset = m_offsets[std::minmax(own.recording, other.recording)];
    const auto cost = [&](std::uint64_t mine, std::size_t place) { return costOf(mine, other.numbers[place], offset); };
    std::size_t place = 0;
    while (isInReach(own, other, place + 1) && cost(first, place + 1) + m_clearlyMs < cost(first, place))
        ++place;
    if (own.numbers.size() > 1 && cost(own.numbers[1], place) + m_clearlyMs < cost(first, place))
        return;
    offset.learn(apartMs(first, other.numbers[place]), own.numbers.size() == 1 && other.numbers.size() == 1);
    at(other.numbers[place]).repeats = true;
    other.numbers.erase(other.numbers.begin() + static_cast<std::ptrdiff_t>(place));
}

// Returns the time of the record of the higher recording minus that of the other.
double tRepetitions::apartMs(std::uint64_t a, std::uint64_t b)
{
    const tCandidate &one = at(a), &other = at(b);
    const double apart = static_cast<double>(other.timeMs) - static_cast<double>(one.timeMs);
    return one.recording < other.recording ? apart : -apart;
}

double tRepetitions::costOf(std::uint64_t a, std::uint64_t b, const tOffset& offset)
{
    return offset.isKnown ? std::abs(apartMs(a, b) - offset.ms) : 0.0;
}

// A match of messages that are not repeated is sure. Others count until there is one.
void tRepetitions::tOffset::learn(double apartMs, bool sure)
{
    constexpr double cWeight = 0.1;
    if (sure == isSure && isKnown)
        ms += cWeight * (apartMs - ms);
    else if (sure || !isKnown)
        ms = apartMs;
    isKnown = true;
    isSure |= sure;
}
}  // namespace recordings
