#include "KestovaRecordings/internal/cellsguess.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <fmt/format.h>

namespace recordings
{
namespace
{
constexpr double cAlike = 0.15;      // distance of two distributions, 0 to 1, up to which they are of the same numbers
constexpr double cDifferent = 0.35;  // from which they are of others

using tHistogram = std::array<double, 256>;

double distance(const tHistogram& a, const tHistogram& b)
{
    double sumA = 0, sumB = 0, difference = 0;
    for (std::size_t i = 0; i < a.size(); ++i)
    {
        sumA += a[i];
        sumB += b[i];
    }
    if (sumA == 0 || sumB == 0)
        return sumA == sumB ? 0 : 1;
    for (std::size_t i = 0; i < a.size(); ++i)
        difference += std::abs(a[i] / sumA - b[i] / sumB);
    return difference / 2;
}

// Of bytes at even and odd places behind `at`, and of high and low halves of bytes that are not 0.
struct tDistances
{
    double bytes, halves;
};

tDistances distancesBehind(const tMessages& messages, std::size_t at)
{
    tHistogram even{}, odd{}, high{}, low{};
    for (const std::string_view message : messages)
        for (std::size_t i = at; i < message.size(); ++i)
        {
            const auto byte = static_cast<unsigned char>(message[i]);
            ++((i - at) % 2 == 0 ? even : odd)[byte];
            if (byte == 0)
                continue;
            ++high[byte >> 4];
            ++low[byte & 15];
        }
    return {distance(even, odd), distance(high, low)};
}

// Returns the place from `first` to `last` that leaves the roundest number of bytes.
std::size_t roundestPlace(std::size_t length, std::size_t first, std::size_t last)
{
    std::size_t best = first;
    for (std::size_t at = first; at <= last; ++at)
        if (std::countr_zero(length - at) > std::countr_zero(length - best))
            best = at;
    return best;
}
}  // namespace

tCellsGuess guessCells(const tMessages& messages, std::size_t headEnd)
{
    tCellsGuess guess;
    std::size_t shortest = messages.front().size(), longest = shortest;
    for (const std::string_view message : messages)
    {
        shortest = std::min(shortest, message.size());
        longest = std::max(longest, message.size());
    }
    if (headEnd >= shortest)
    {
        guess.at = headEnd;
        guess.toTheEnd = true;
        guess.why = fmt::format("nothing follows the known fields, which end at {}", headEnd);
        return guess;
    }
    std::size_t firstVarying = headEnd;
    while (firstVarying + 1 < shortest && isConstant(messages, firstVarying))
        ++firstVarying;
    guess.toTheEnd = shortest != longest;
    guess.at = guess.toTheEnd ? headEnd : roundestPlace(shortest, headEnd, firstVarying);
    const tDistances apart = distancesBehind(messages, guess.at);
    if (apart.bytes > cDifferent)
        guess.bits = 16;
    else if (apart.halves < cAlike)
        guess.bits = 4;
    const bool widthIsClear = apart.bytes < cAlike && (apart.halves < cAlike || apart.halves > cDifferent);
    const bool placeIsClear = !guess.toTheEnd && (headEnd == firstVarying || std::has_single_bit(shortest - guess.at));
    guess.isSure = widthIsClear && placeIsClear;
    guess.why =
        fmt::format("the known fields end at {}, bytes change from {} on, {} bytes follow; bytes at even and odd "
                    "places differ by {:.2f}, high and low halves of bytes by {:.2f}: {} bits fit best",
                    headEnd, firstVarying, shortest - guess.at, apart.bytes, apart.halves, guess.bits);
    return guess;
}
}  // namespace recordings
