#include "KestovaRecordings/streamhistory.h"

#include <algorithm>
#include <iterator>
#include <optional>

#include "KestovaRecordings/activity.h"

namespace recordings
{
namespace
{
constexpr std::size_t cGapsKept = 16;

// Returns the interval, one of those in order of time, in which the silence lies.
std::optional<tGap> around(const tGap& silence, const std::vector<tGap>& intervals)
{
    const auto behind = std::ranges::upper_bound(intervals, silence.fromMs, {}, &tGap::fromMs);
    if (behind == intervals.begin() || std::prev(behind)->toMs < silence.toMs)
        return std::nullopt;
    return *std::prev(behind);
}

bool longer(const tGap& a, const tGap& b)
{
    return a.length() > b.length();
}
}  // namespace

class tStreamHistory::tPrivate
{
public:
    void keep(tGap gap)
    {
        gaps.push_back(gap);
        std::push_heap(gaps.begin(), gaps.end(), longer);
        if (gaps.size() <= cGapsKept)
            return;
        std::pop_heap(gaps.begin(), gaps.end(), longer);
        gaps.pop_back();
    }

    void keepGapTo(std::uint64_t timeMs, std::uint64_t gapMs)
    {
        if (previousMs != 0 && timeMs > previousMs && timeMs - previousMs >= gapMs)
            keep({previousMs, timeMs});
    }

    std::uint64_t messages = 0, bytes = 0;
    std::uint64_t firstMs = 0, lastMs = 0;  // the earliest and the latest
    std::uint64_t beginMs = 0;              // of the first message, as they came
    std::uint64_t previousMs = 0;           // of the last one; 0 after an interruption
    tDigest digest;
    std::vector<tGap> gaps;  // a heap, the shortest on top
    tActivity activity;      // its silences are the intervals that can hold a silence of everything
};

tStreamHistory::tStreamHistory() : d(std::make_unique<tPrivate>()) {}

tStreamHistory::tStreamHistory(const tStreamRecollection& known) : tStreamHistory()
{
    d->messages = known.messages;
    d->bytes = known.bytes;
    d->firstMs = d->beginMs = known.firstMs;
    d->lastMs = d->previousMs = known.lastMs;
    d->digest = known.digest;
    for (const tGap& gap : known.gaps)
        d->keep(gap);
    for (const tGap& stretch : known.stretches)
        d->activity.add(stretch);
}

tStreamHistory::~tStreamHistory() = default;
tStreamHistory::tStreamHistory(tStreamHistory&&) noexcept = default;
tStreamHistory& tStreamHistory::operator=(tStreamHistory&&) noexcept = default;

void tStreamHistory::add(std::uint64_t timeMs, std::string_view message, std::uint64_t gapMs, bool withDigest)
{
    count(timeMs, message.size(), gapMs);
    if (withDigest)
        d->digest.add(message);
}

void tStreamHistory::count(std::uint64_t timeMs, std::uint64_t bytes, std::uint64_t gapMs)
{
    if (d->messages == 0)
        d->firstMs = d->beginMs = timeMs;
    d->firstMs = std::min(d->firstMs, timeMs);
    d->lastMs = std::max(d->lastMs, timeMs);
    if (timeMs != d->previousMs)
    {
        d->keepGapTo(timeMs, gapMs);
        d->activity.add(timeMs);
        d->previousMs = timeMs;
    }
    ++d->messages;
    d->bytes += bytes;
}

void tStreamHistory::append(const tStreamHistory& later, std::uint64_t gapMs)
{
    const tPrivate& other = *later.d;
    if (other.messages == 0)
        return;
    if (d->messages == 0)
    {
        d->firstMs = other.firstMs;
        d->beginMs = other.beginMs;
    }
    d->firstMs = std::min(d->firstMs, other.firstMs);
    d->lastMs = std::max(d->lastMs, other.lastMs);
    d->keepGapTo(other.beginMs, gapMs);
    for (const tGap& gap : other.gaps)
        d->keep(gap);
    d->activity.add(other.activity);
    d->previousMs = other.previousMs;
    d->messages += other.messages;
    d->bytes += other.bytes;
}

void tStreamHistory::setDigest(const tDigest& digest)
{
    d->digest = digest;
}

void tStreamHistory::interrupt()
{
    d->previousMs = 0;
}

std::uint64_t tStreamHistory::messages() const
{
    return d->messages;
}

std::uint64_t tStreamHistory::bytes() const
{
    return d->bytes;
}

std::uint64_t tStreamHistory::firstMs() const
{
    return d->firstMs;
}

std::uint64_t tStreamHistory::lastMs() const
{
    return d->lastMs;
}

const tDigest& tStreamHistory::digest() const
{
    return d->digest;
}

double tStreamHistory::messagesPerSecond(const std::vector<tGap>& without) const
{
    if (d->messages < 2)
        return 0.0;
    std::uint64_t span = d->lastMs - d->firstMs;
    const std::vector<tGap> longIntervals = d->activity.silences();
    std::vector<std::uint64_t> rests;  // of the intervals around silences
    for (const tGap& silence : without)
    {
        const auto interval = around(silence, longIntervals);
        if (!interval)
            continue;
        span -= silence.length();
        rests.push_back(interval->length() - silence.length());
    }
    // An interval that is hardly more than the silence is none of the stream's.
    std::uint64_t intervals = d->messages - 1;
    const std::uint64_t half = span / intervals / 2;
    intervals -= static_cast<std::uint64_t>(std::ranges::count_if(rests, [half](auto rest) { return rest < half; }));
    return span == 0 ? 0.0 : static_cast<double>(intervals) * 1000.0 / static_cast<double>(span);
}

double tStreamHistory::bytesPerSecond(const std::vector<tGap>& without) const
{
    return d->messages == 0
               ? 0.0
               : messagesPerSecond(without) * static_cast<double>(d->bytes) / static_cast<double>(d->messages);
}

std::vector<tGap> tStreamHistory::gaps(const std::vector<tGap>& without) const
{
    const double rate = messagesPerSecond(without);
    const auto usual = static_cast<std::uint64_t>(rate > 0.0 ? 1000.0 / rate : 0.0);
    std::vector<tGap> found;
    for (const tGap& gap : d->gaps)
    {
        if (gap.length() >= 3 * usual)
            found.push_back(gap);
    }
    std::sort(found.begin(), found.end(), longer);
    return found;
}
}  // namespace recordings
