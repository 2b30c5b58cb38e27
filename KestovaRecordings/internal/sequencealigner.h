// tSequenceAligner: a longest common subsequence of two sequences of messages.
//
// Shapes   align() returns pairs of places with equal hashes, both ascending. As long as the two differ in no more than
//          2 * cMostSteps places, messages that only one of them has not counted, no longer subsequence exists. Beyond
//          that the result is a common subsequence, not always the longest: time and memory stay bounded.
// Units    time O((n + m) * differences), at most O((n + m) * cMostSteps); memory some 40 bytes a message.
// Threads  none; one at a time.
//
// The method is Myers's: the furthest reaching paths of few differences from both ends, until they meet in the middle
// of a shortest edit script; then the same for what lies before and behind.
#ifndef KESTOVA_RECORDINGS_INTERNAL_SEQUENCEALIGNER_H
#define KESTOVA_RECORDINGS_INTERNAL_SEQUENCEALIGNER_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "KestovaRecordings/internal/messagequeue.h"

namespace recordings
{
struct tAlignedPair
{
    std::size_t a, b;
    bool follows(const tAlignedPair& other) const { return a == other.a + 1 && b == other.b + 1; }
};
using tAlignedPairs = std::vector<tAlignedPair>;

class tSequenceAligner
{
public:
    static constexpr std::ptrdiff_t cMostSteps = 1024;  // of differences from either end

    tAlignedPairs align(std::span<const tWaitingMessage> a, std::span<const tWaitingMessage> b);

private:
    // Of the common messages: those from a0 to before a1, and from b0 to before b1.
    struct tBox
    {
        std::ptrdiff_t a0, a1, b0, b1;
    };
    struct tPlace
    {
        std::ptrdiff_t a, b;
    };
    // One sequence without the messages that the other does not have: a number for each, and its place.
    struct tCommon
    {
        std::vector<std::uint32_t> numbers;
        std::vector<std::size_t> places;
    };
    class tPaths;

    void keepCommon(std::span<const tWaitingMessage> a, std::span<const tWaitingMessage> b);
    void alignBox(tBox box);
    tPlace split(const tBox& box);
    void pair(std::ptrdiff_t a, std::ptrdiff_t b);

    tCommon m_a, m_b;
    std::vector<std::ptrdiff_t> m_forward, m_backward;  // furthest places on each diagonal
    tAlignedPairs m_pairs;
};
}  // namespace recordings

#endif
