// tComparisonWalk: two sides read together, each message given to the comparison of its stream.
//
// Shapes   Next comes the message that the other side waits for, then the one that is earlier, B's clock set by the
//          last pair. A side that is ahead by many messages lets the other one catch up, in case its clock has
//          jumped.
// Bounds   cMostWaiting messages a side wait, of all streams together.
// Threads  none; one at a time.
#ifndef KESTOVA_RECORDINGS_INTERNAL_COMPARISONWALK_H
#define KESTOVA_RECORDINGS_INTERNAL_COMPARISONWALK_H

#include <array>
#include <cstddef>
#include <functional>
#include <map>

#include "KestovaRecordings/internal/messagecontent.h"
#include "KestovaRecordings/internal/messagefeed.h"
#include "KestovaRecordings/internal/streamcomparison.h"

namespace recordings
{
class tComparisonWalk
{
public:
    static constexpr std::size_t cMostWaiting = 262'144;

    tComparisonWalk(tMessageFeed& a, tMessageFeed& b, const tMessageContent& content, tComparisonState& state)
        : m_feeds{&a, &b}, m_content(content), m_state(state)
    {}

    // Goes to the end of both sides. Calls `goOn` now and then; returns false when that did.
    bool run(const std::function<bool()>& goOn);
    const std::map<tStreamNumber, tStreamComparison>& streams() const { return m_streams; }

private:
    struct tAtHand
    {
        tStreamNumber number = 0;
        tStreamComparison* stream = nullptr;
    };

    const tMessage& message(eSide side) const { return m_feeds[side]->message(); }
    tStreamComparison& of(tStreamNumber number)
    {
        tAtHand& place = m_atHand[(number ^ number >> 16 ^ number >> 48) % m_atHand.size()];
        if (place.stream == nullptr || place.number != number)
            place = {number, &m_streams.try_emplace(number, m_state).first->second};
        return *place.stream;
    }
    bool wait(const std::function<bool()>& goOn);
    bool step();
    void takeTogether(tStreamComparison& stream);
    eSide due();
    bool hasRoom(eSide side);
    void take(eSide side);
    void relieve(eSide side);

    const std::array<tMessageFeed*, 2> m_feeds;
    const tMessageContent& m_content;
    tComparisonState& m_state;
    std::map<tStreamNumber, tStreamComparison> m_streams;
    std::array<tAtHand, 32> m_atHand;
    std::array<bool, 2> m_has{};  // a next message
};
}  // namespace recordings

#endif
