#include "KestovaRecordings/internal/repetitions.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace recordings
{
namespace
{
// Returns the place with the lowest cost of those that exist. Costs fall up to there and rise behind.
template <typename tExists, typename tCost>
std::size_t nearestOf(const tExists& exists, const tCost& cost)
{
    std::size_t place = 0;
    while (exists(place + 1) && cost(place + 1) < cost(place))
        ++place;
    return place;
}
}  // namespace

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
    if (!m_waiting.front().repeats)
        decide();
    candidate = std::move(m_waiting.front());
    m_waiting.pop_front();
    ++m_first;
    return true;
}

// The first one stays; those of other recordings that repeat it are marked. What is marked waits in no queue any more.
void tRepetitions::decide()
{
    const auto equal = m_equal.find(m_waiting.front().hash);
    std::vector<tQueue>& queues = equal->second;
    const std::size_t recording = m_waiting.front().recording;
    tQueue& own =
        *std::find_if(queues.begin(), queues.end(), [&](const tQueue& each) { return each.recording == recording; });
    for (tQueue& other : queues)
        if (&other != &own && isInReach(own, other, 0))
            match(own, other);
    own.numbers.erase(own.numbers.begin());
    if (std::all_of(queues.begin(), queues.end(), [](const tQueue& each) { return each.numbers.empty(); }))
        m_equal.erase(equal);
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
    std::size_t place = 0;  // in the other queue
    const auto inReach = [&](std::size_t i) { return isInReach(own, other, i); };
    const auto costOfOther = [&](std::size_t i) { return costOf(first, other.numbers[i], offset); };
    const std::size_t nearest = nearestOf(inReach, costOfOther);
    if (costOfOther(nearest) + m_clearlyMs < costOfOther(0))
        place = nearest;
    const auto exists = [&](std::size_t i) { return i < own.numbers.size(); };
    const auto costOfOwn = [&](std::size_t i) { return costOf(own.numbers[i], other.numbers[place], offset); };
    const double cost = costOfOwn(0);
    if (costOfOwn(nearestOf(exists, costOfOwn)) + m_clearlyMs < cost || cost > farthest(own, other, place))
        return;
    offset.learn(apartMs(first, other.numbers[place]), own.numbers.size() == 1 && other.numbers.size() == 1);
    at(other.numbers[place]).repeats = true;
    other.numbers.erase(other.numbers.begin() + static_cast<std::ptrdiff_t>(place));
}

// Returns how far the first record of `own` and one of `other` may be apart: half the time to the next repetition,
// unless that is too short to tell.
double tRepetitions::farthest(const tQueue& own, const tQueue& other, std::size_t place)
{
    constexpr double cAny = std::numeric_limits<double>::infinity();
    const auto toNext = [&](const tQueue& queue, std::size_t i) {
        return i + 1 < queue.numbers.size()
                   ? static_cast<double>(at(queue.numbers[i + 1]).timeMs - at(queue.numbers[i]).timeMs)
                   : cAny;
    };
    const double half = std::min(toNext(own, 0), toNext(other, place)) / 2.0;
    return half > m_clearlyMs ? half : cAny;
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
