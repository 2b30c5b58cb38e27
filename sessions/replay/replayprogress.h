// tReplayProgress: the position of a replay, and counts of what it has played, stream by stream.
#ifndef KESTOVA_SESSIONS_REPLAY_REPLAYPROGRESS_H
#define KESTOVA_SESSIONS_REPLAY_REPLAYPROGRESS_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string_view>

#include "KestovaRecordings/streamcounts.h"

namespace session
{
struct tReplayState
{
    bool opened = false;                    // the span is known and playing has begun
    bool ended = false;                     // the last record has been played
    std::uint64_t firstMs = 0, lastMs = 0;  // of everything opened
    std::uint64_t timeMs = 0;               // of the record played last
    double fraction = 0.0;                  // of the span
    std::uint64_t records = 0;
    std::uint64_t playedMs = 0;  // recorded time that has been played
    std::uint64_t tookMs = 0;    // time that playing it took
};

// A replayer updates it on the replay thread. Any thread.
class tReplayProgress
{
public:
    // Calls `begin` on the replay thread when everything is open, before the first record: a jump from inside it
    // precedes anything played or sent.
    explicit tReplayProgress(std::function<void(const tReplayState&)> begin) : m_begin(std::move(begin)) {}

    tReplayState state() const;
    recordings::tStreamCounts counts() const;
    void beginJump();     // before a jump: ignores the end of the stretch before it
    void beginStretch();  // before and after a pause, which does not count as playing

    // For replayers.
    void status(std::uint8_t status);
    void span(std::uint64_t firstMs, std::uint64_t lastMs);
    void passed(std::uint64_t timeMs, double fraction);  // a record was played
    void count(const recordings::tStreamKey& stream, std::string_view message);

private:
    using tSteady = std::chrono::steady_clock;

    const std::function<void(const tReplayState&)> m_begin;
    mutable std::mutex m_mutex;
    bool m_jumping = false;  // guarded by m_mutex, as is everything below
    tReplayState m_state;
    recordings::tStreamCounts m_counts;
    std::uint64_t m_stretchFirstMs = 0;  // 0 until the stretch has its first record
    tSteady::time_point m_stretchStart;
    std::uint64_t m_playedBefore = 0, m_tookBefore = 0;  // sums over the earlier stretches
};
}  // namespace session

#endif
