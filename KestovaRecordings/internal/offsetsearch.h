// tOffsetSearch: how much later than A's clock B's is, found by the messages that both have.
//
// Shapes   the first 4,096 messages of either side, 4 MiB at most, are looked for in the whole of the other; those that
//          occur twice among them, which could be any, are not. Three that agree within a second are enough.
// Threads  none; one at a time.
#ifndef KESTOVA_RECORDINGS_INTERNAL_OFFSETSEARCH_H
#define KESTOVA_RECORDINGS_INTERNAL_OFFSETSEARCH_H

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <unordered_map>
#include <vector>

#include "KestovaRecordings/internal/messagecontent.h"
#include "KestovaRecordings/internal/messagefeed.h"
#include "KestovaRecordings/internal/streamcomparison.h"

namespace recordings
{
class tOffsetSearch
{
public:
    // `goOn` is called now and then; false cancels.
    tOffsetSearch(tMessageFeed& a, tMessageFeed& b, const tMessageContent& content, std::function<bool()> goOn)
        : m_feeds{&a, &b}, m_content(content), m_goOn(std::move(goOn))
    {}

    // Reads the beginnings of both sides. Returns B's time less A's in microseconds, or nothing.
    std::optional<std::int64_t> inBeginnings();
    // Reads both sides on to their ends, if need be.
    std::optional<std::int64_t> farther();

    bool cancelled() const { return m_cancelled; }
    // Returns the difference of the first messages' times, for want of anything better.
    std::int64_t ofFirstMessages() const { return m_firstUs[eSideB] - m_firstUs[eSideA]; }

private:
    struct tSeen
    {
        std::int64_t timeUs;
        bool once = true;
    };
    using tBeginning = std::unordered_map<std::uint64_t, tSeen>;

    bool next(eSide side);
    std::uint64_t key(eSide side) const;
    void readBeginning(eSide side);
    void look(eSide side);
    void vote(std::int64_t offsetUs);

    const std::array<tMessageFeed*, 2> m_feeds;
    const tMessageContent& m_content;
    const std::function<bool()> m_goOn;
    bool m_cancelled = false;
    std::uint64_t m_steps = 0;
    std::array<std::int64_t, 2> m_firstUs{};
    std::array<tBeginning, 2> m_beginnings;
    std::vector<std::int64_t> m_votes;
    std::optional<std::int64_t> m_found;
};
}  // namespace recordings

#endif
