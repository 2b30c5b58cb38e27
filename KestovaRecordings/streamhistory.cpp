#include "KestovaRecordings/streamhistory.h"

#include <algorithm>

namespace recordings
{
namespace
{
constexpr std::size_t cGapsKept = 16;

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

    std::uint64_t messages = 0, bytes = 0;
    std::uint64_t firstMs = 0, lastMs = 0, previousMs = 0;
    tDigest digest;
    std::vector<tGap> gaps;  // a heap, the shortest on top
};

tStreamHistory::tStreamHistory() : d(std::make_unique<tPrivate>()) {}

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
    d->firstMs = d->messages == 0 ? timeMs : std::min(d->firstMs, timeMs);
    d->lastMs = std::max(d->lastMs, timeMs);
    if (d->previousMs != 0 && timeMs > d->previousMs && timeMs - d->previousMs >= gapMs)
        d->keep({d->previousMs, timeMs});
    d->previousMs = timeMs;
    ++d->messages;
    d->bytes += bytes;
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

double tStreamHistory::messagesPerSecond() const
{
    const std::uint64_t span = d->lastMs - d->firstMs;
    return span == 0 ? 0.0 : static_cast<double>(d->messages - 1) * 1000.0 / static_cast<double>(span);
}

double tStreamHistory::bytesPerSecond() const
{
    return d->messages == 0 ? 0.0
                            : messagesPerSecond() * static_cast<double>(d->bytes) / static_cast<double>(d->messages);
}

std::vector<tGap> tStreamHistory::gaps() const
{
    const std::uint64_t usual = d->messages > 1 ? (d->lastMs - d->firstMs) / (d->messages - 1) : 0;
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
