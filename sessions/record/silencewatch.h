// tSilenceWatch: finds out from counts of datagrams which streams have fallen silent.
//
// Shapes   a stream is silent after 10 s without a datagram, or three times its longest interval so far if that is
//          more: some are sent once in a while. One that has never had a datagram is not silent by itself; all together
//          are, from the start on. While all are silent no single one is reported.
// Threads  one at a time. Time is passed in; nothing waits.
#ifndef KESTOVA_SESSIONS_RECORD_SILENCEWATCH_H
#define KESTOVA_SESSIONS_RECORD_SILENCEWATCH_H

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "KestovaRecordings/streamcounts.h"

namespace session
{
struct tSilence
{
    std::optional<recordings::tStreamKey> stream;  // none: all of them
    bool begins = true;                            // or ends: a datagram has come
    std::uint64_t ms = 0;                          // how long it has lasted
};

class tSilenceWatch
{
public:
    using tTime = std::chrono::steady_clock::time_point;

    explicit tSilenceWatch(tTime start) : m_all{0, start} {}

    // Takes the counts of the streams at `now`. Returns the silences that begin or end.
    std::vector<tSilence> update(const recordings::tStreamCounts& counts, tTime now);

private:
    struct tSource
    {
        std::uint64_t messages = 0;
        tTime last;                           // of its last datagram, or the start
        std::chrono::milliseconds longest{};  // of its intervals, without silences
        bool silent = false;
        bool reported = false;

        // Each returns whether a silence begins or ends, with its length in `ms`.
        bool ends(std::uint64_t messagesNow, tTime now, std::uint64_t& ms);
        bool begins(tTime now, std::uint64_t& ms);
    };

    tSource m_all;
    std::map<recordings::tStreamKey, tSource> m_streams;  // those that have had a datagram
};
}  // namespace session

#endif
