#include "sessions/record/silencewatch.h"

#include <algorithm>
#include <utility>

namespace session
{
using namespace recordings;

namespace
{
using std::chrono::milliseconds;

constexpr milliseconds cSilent{10'000};

milliseconds since(tSilenceWatch::tTime before, tSilenceWatch::tTime now)
{
    return std::chrono::duration_cast<milliseconds>(now - before);
}
}  // namespace

bool tSilenceWatch::tSource::ends(std::uint64_t messagesNow, tTime now, std::uint64_t& ms)
{
    if (messagesNow == messages)
        return false;
    const milliseconds interval = since(last, now);
    ms = static_cast<std::uint64_t>(interval.count());
    if (!silent && messages != 0)
        longest = std::max(longest, interval);
    messages = messagesNow;
    last = now;
    silent = false;
    return std::exchange(reported, false);
}

bool tSilenceWatch::tSource::begins(tTime now, std::uint64_t& ms)
{
    const milliseconds lasts = since(last, now);
    if (silent || lasts < std::max(cSilent, 3 * longest))
        return false;
    ms = static_cast<std::uint64_t>(lasts.count());
    silent = true;
    return true;
}

std::vector<tSilence> tSilenceWatch::update(const tStreamCounts& counts, tTime now)
{
    std::vector<tSilence> silences;
    std::uint64_t ms = 0;
    if (m_all.ends(total(counts).messages, now, ms))
        silences.push_back({std::nullopt, false, ms});
    if (m_all.begins(now, ms))
    {
        m_all.reported = true;
        silences.push_back({std::nullopt, true, ms});
    }
    for (const auto& [key, count] : counts)
    {
        if (count.messages == 0)
            continue;
        tSource& stream = m_streams.try_emplace(key, tSource{0, now}).first->second;
        if (stream.ends(count.messages, now, ms))
            silences.push_back({key, false, ms});
        if (!m_all.silent && stream.begins(now, ms))
        {
            stream.reported = true;
            silences.push_back({key, true, ms});
        }
    }
    return silences;
}
}  // namespace session
