#include "KestovaRecordings/internal/timefit.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <vector>

namespace recordings
{
namespace
{
using tMessages = std::span<const tWaitingMessage>;

constexpr std::size_t cMostChoices = 4'000'000;

// The pairs from `first` to before `last`, and all messages of both sides, identical to theirs, around and between.
struct tRun
{
    std::size_t first, last;
    std::size_t a0, a1, b0, b1;
};

bool allAre(std::uint64_t hash, tMessages messages, std::size_t from, std::size_t to)
{
    return std::all_of(messages.begin() + static_cast<std::ptrdiff_t>(from),
                       messages.begin() + static_cast<std::ptrdiff_t>(to),
                       [hash](const tWaitingMessage& message) { return message.hash == hash; });
}

// Extends a range of identical messages within its limits.
void extend(std::size_t& from, std::size_t& to, std::size_t lowest, std::size_t highest, std::uint64_t hash,
            tMessages messages)
{
    while (from > lowest && messages[from - 1].hash == hash)
        --from;
    while (to < highest && messages[to].hash == hash)
        ++to;
}

tRun runFrom(std::size_t first, const tAlignedPairs& pairs, tMessages a, tMessages b)
{
    const std::uint64_t hash = a[pairs[first].a].hash;
    std::size_t last = first + 1;
    while (last < pairs.size() && allAre(hash, a, pairs[last - 1].a, pairs[last].a + 1) &&
           allAre(hash, b, pairs[last - 1].b, pairs[last].b + 1))
        ++last;
    tRun run{first, last, pairs[first].a, pairs[last - 1].a + 1, pairs[first].b, pairs[last - 1].b + 1};
    extend(run.a0, run.a1, first > 0 ? pairs[first - 1].a + 1 : 0, last < pairs.size() ? pairs[last].a : a.size(), hash,
           a);
    extend(run.b0, run.b1, first > 0 ? pairs[first - 1].b + 1 : 0, last < pairs.size() ? pairs[last].b : b.size(), hash,
           b);
    return run;
}

// The messages of the side with fewer, each of which gets a partner, and those of the side with more; their times are
// to be equal.
class tFit
{
public:
    tFit(tMessages fewer, tMessages more, std::int64_t offsetUs)
        : m_fewer(fewer), m_more(more), m_offsetUs(offsetUs), m_surplus(more.size() - fewer.size())
    {}

    // Returns, for each of the fewer, how many of the more before its partner have none. Ascending.
    std::vector<std::size_t> skipped() const
    {
        return m_fewer.size() * (m_surplus + 1) <= cMostChoices ? best() : oneBlock();
    }

private:
    double cost(std::size_t i, std::size_t skipped) const
    {
        return std::abs(static_cast<double>(m_more[i + skipped].timeUs + m_offsetUs - m_fewer[i].timeUs));
    }
    // Finds the least sum of costs, one message of the fewer after the other.
    std::vector<std::size_t> best() const
    {
        std::vector<double> sums(m_surplus + 1, 0.0);
        std::vector<std::uint32_t> before(m_fewer.size() * sums.size());  // the choice for the message before
        for (std::size_t i = 0; i < m_fewer.size(); ++i)
        {
            std::size_t least = 0;
            double leastSum = sums[0];
            for (std::size_t skipped = 0; skipped <= m_surplus; ++skipped)
            {
                if (sums[skipped] < leastSum)
                {
                    least = skipped;
                    leastSum = sums[skipped];
                }
                before[i * sums.size() + skipped] = static_cast<std::uint32_t>(least);
                sums[skipped] = leastSum + cost(i, skipped);
            }
        }
        std::vector<std::size_t> choice(m_fewer.size());
        std::size_t skipped = static_cast<std::size_t>(std::min_element(sums.begin(), sums.end()) - sums.begin());
        for (std::size_t i = m_fewer.size(); i-- > 0;)
        {
            choice[i] = skipped;
            skipped = before[i * sums.size() + skipped];
        }
        return choice;
    }
    std::vector<std::size_t> oneBlock() const
    {
        double sum = 0.0, least = 0.0;  // against the block before everything
        std::size_t place = 0;
        for (std::size_t i = 0; i < m_fewer.size(); ++i)
        {
            sum += cost(i, 0) - cost(i, m_surplus);
            if (sum < least)
            {
                least = sum;
                place = i + 1;
            }
        }
        std::vector<std::size_t> choice(m_fewer.size(), m_surplus);
        std::fill_n(choice.begin(), place, 0);
        return choice;
    }

    const tMessages m_fewer, m_more;
    const std::int64_t m_offsetUs;
    const std::size_t m_surplus;
};

void fitRun(tAlignedPairs& pairs, const tRun& run, tMessages a, tMessages b, std::int64_t offsetUs)
{
    const tMessages ofA = a.subspan(run.a0, run.a1 - run.a0), ofB = b.subspan(run.b0, run.b1 - run.b0);
    const bool moreInA = ofA.size() > ofB.size();
    const std::size_t count = run.last - run.first;
    if (ofA.size() == ofB.size() || count != std::min(ofA.size(), ofB.size()))
        return;
    const tFit fit = moreInA ? tFit(ofB, ofA, offsetUs) : tFit(ofA, ofB, -offsetUs);
    const std::vector<std::size_t> skipped = fit.skipped();
    for (std::size_t i = 0; i < count; ++i)
    {
        pairs[run.first + i].a = run.a0 + i + (moreInA ? skipped[i] : 0);
        pairs[run.first + i].b = run.b0 + i + (moreInA ? 0 : skipped[i]);
    }
}
}  // namespace

void fitTimes(tAlignedPairs& pairs, tMessages a, tMessages b, std::int64_t offsetUs)
{
    for (std::size_t i = 0; i < pairs.size();)
    {
        const tRun run = runFrom(i, pairs, a, b);
        fitRun(pairs, run, a, b, offsetUs);
        i = run.last;
    }
}
}  // namespace recordings
