// What keeping spokes for the circle loop costs, beside appending them to a deque.
//
//   spoke_bench
//
// 1,000 revolutions of 4,096 spokes of 542 bytes. The buffer drops the revolution that is no longer needed; the deque
// is emptied every two revolutions, so that both hold as much. Spokes are copied from one payload, as in a replay.
// Median of 5 runs each, in turn.
#include <deque>

#include "KestovaStorage/internal/replay/spokebuffer.h"
#include "bench/measure.h"

namespace
{
using bench::tClock;
using Kestova::tSpokeString;

constexpr std::uint32_t cSpokes = 4'096;
constexpr int cRevolutions = 1'000;
constexpr double cAll = static_cast<double>(cSpokes) * cRevolutions;
const std::string cPayload(542, 's');

tSpokeString spoke(std::uint32_t azimuth)
{
    return {azimuth, 1, 6001, cPayload};
}

double feedBuffer()
{
    Kestova::tSpokeBuffer buffer;
    const auto start = tClock::now();
    for (int revolution = 0; revolution < cRevolutions; ++revolution)
        for (std::uint32_t azimuth = 0; azimuth < cSpokes; ++azimuth)
            buffer.append(spoke(azimuth));
    const double ns = bench::secondsSince(start) * 1e9 / cAll;
    if (buffer.size() != 2 * cSpokes)
        std::exit(1);
    return ns;
}

double feedDeque()
{
    std::deque<tSpokeString> deque;
    const auto start = tClock::now();
    for (int revolution = 0; revolution < cRevolutions; ++revolution)
    {
        if (deque.size() == 2 * cSpokes)
            deque.clear();
        for (std::uint32_t azimuth = 0; azimuth < cSpokes; ++azimuth)
            deque.push_back(spoke(azimuth));
    }
    return bench::secondsSince(start) * 1e9 / cAll;
}
}  // namespace

int main()
{
    bench::announce("spoke_bench: 1,000 revolutions of 4,096 spokes of 542 bytes");
    std::vector<double> buffer, deque;
    for (int run = 0; run < 5; ++run)
    {
        buffer.push_back(feedBuffer());
        deque.push_back(feedDeque());
    }
    const auto ours = bench::figuresOf(buffer), theirs = bench::figuresOf(deque);
    std::printf("  buffer %.0f ns a spoke (%.0f to %.0f), deque %.0f ns (%.0f to %.0f)\n", ours.median, ours.low,
                ours.high, theirs.median, theirs.low, theirs.high);
    std::printf("  ratio  %.2f (wanted: at most 3)\n", ours.median / theirs.median);
    return 0;
}
