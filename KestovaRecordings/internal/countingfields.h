// Numbers at fixed places that count from message to message.
#ifndef KESTOVA_RECORDINGS_INTERNAL_COUNTINGFIELDS_H
#define KESTOVA_RECORDINGS_INTERNAL_COUNTINGFIELDS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace recordings
{
using tMessages = std::vector<std::string_view>;

struct tFieldPlace
{
    std::size_t at;
    unsigned width;
    bool bigEndian;

    std::size_t end() const { return at + width; }
    bool overlaps(const tFieldPlace& other) const { return at < other.end() && other.at < end(); }
    std::uint64_t in(std::string_view message) const;
};

// A number that goes up, or down, by a step and around.
struct tCircling
{
    tFieldPlace place;
    std::uint64_t mask;    // of the bits that count
    std::int64_t step;     // mostly
    std::uint64_t period;  // that it goes around by
    std::size_t turns;     // how often it went around
    bool isWhole;          // the highest number and the step give the period
};

// A number that goes up by one, mostly.
struct tCounting
{
    tFieldPlace place;
    std::size_t constantBytes;  // of its high bytes, those that never change
};

// Returns whether a byte is the same in all messages.
bool isConstant(const tMessages& messages, std::size_t at);
// Returns all numbers within the first `end` bytes that circle, each once; those of the fewest bytes.
std::vector<tCircling> circlingFields(const tMessages& messages, std::size_t end);
// The same for numbers that count by one, beside those that are taken.
std::vector<tCounting> countingFields(const tMessages& messages, std::size_t end, bool bigEndian,
                                      std::vector<tFieldPlace> taken);
}  // namespace recordings

#endif
