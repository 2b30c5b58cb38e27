// tRepetitions: finds messages that several recordings have.
//
// Shapes   records are added in order of time, each with the number of its recording and a hash of its group and
//          payload; they come out in the same order, each with the verdict whether it repeats one that came out
//          before. A record is decided on when records of twice the tolerance behind it are known.
// Matching of equal records the first one that waits is matched with the first one of each other recording within the
//          tolerance. Of a message that is repeated one may be missing on either side: one is passed over if a later
//          one of its recording is nearer by a fortieth of the tolerance, and two are no match that are apart by more
//          than half the time to the next repetition. Near is what is apart by as much as the clocks of the two
//          recordings, which is learned from the matches before.
// Growth   holds cWaitingLimit records at most: with more in so short a time the first is decided on early.
// Threads  one at a time.
#ifndef KESTOVA_RECORDINGS_INTERNAL_REPETITIONS_H
#define KESTOVA_RECORDINGS_INTERNAL_REPETITIONS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include "KestovaRecordings/internal/recordorder.h"

namespace recordings
{
using tContentHash = std::array<std::uint64_t, 2>;

struct tCandidate
{
    std::shared_ptr<tOpenInput> from;
    std::size_t record;     // of the file
    std::size_t recording;  // that it belongs to
    std::uint64_t timeMs;   // after the shift
    tContentHash hash;
    bool repeats = false;
};

class tRepetitions
{
public:
    explicit tRepetitions(std::uint64_t toleranceMs)
        : m_toleranceMs(toleranceMs), m_clearlyMs(static_cast<double>(toleranceMs) / 40.0)
    {}

    void add(tCandidate candidate);
    void end() { m_atEnd = true; }  // nothing more is added
    // Returns false while the next record is undecided, and at the end.
    bool next(tCandidate& candidate);

private:
    static constexpr std::size_t cWaitingLimit = 100'000;

    struct tHash
    {
        std::size_t operator()(const tContentHash& hash) const { return static_cast<std::size_t>(hash[0]); }
    };
    // Equal records of one recording that wait for a verdict, by their numbers, in order.
    struct tQueue
    {
        std::size_t recording;
        std::vector<std::uint64_t> numbers;
    };
    // By how much the clock of one recording is ahead of another's.
    struct tOffset
    {
        double ms = 0.0;
        bool isKnown = false, isSure = false;

        void learn(double apartMs, bool sure);
    };

    tCandidate& at(std::uint64_t number) { return m_waiting[static_cast<std::size_t>(number - m_first)]; }
    bool isDecidable() const;
    void decide();
    void match(tQueue& own, tQueue& other);
    double farthest(const tQueue& own, const tQueue& other, std::size_t place);
    bool isInReach(const tQueue& own, const tQueue& other, std::size_t place);
    double apartMs(std::uint64_t a, std::uint64_t b);
    // How far two records are from being the same message; 0 while nothing is known of their clocks.
    double costOf(std::uint64_t a, std::uint64_t b, const tOffset& offset);

    const std::uint64_t m_toleranceMs;
    const double m_clearlyMs;
    std::deque<tCandidate> m_waiting;
    std::uint64_t m_first = 0;  // number of the first one that waits
    std::unordered_map<tContentHash, std::vector<tQueue>, tHash> m_equal;
    std::map<std::pair<std::size_t, std::size_t>, tOffset> m_offsets;  // the lower number of a recording first
    bool m_atEnd = false;
};
}  // namespace recordings

#endif
