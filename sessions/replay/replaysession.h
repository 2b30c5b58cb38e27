// One replay as it is seen from outside: what came, stream by stream, and where playing stands.
#ifndef KESTOVA_SESSIONS_REPLAY_REPLAYSESSION_H
#define KESTOVA_SESSIONS_REPLAY_REPLAYSESSION_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string_view>

#include "KestovaRecordings/streamcounts.h"

namespace tool
{
struct tReplayState
{
    bool opened = false;                    // the span is known and playing has begun
    bool ended = false;                     // the last record has been played
    std::uint64_t firstMs = 0, lastMs = 0;  // of everything opened
    std::uint64_t timeMs = 0;               // of the record played last
    double progress = 0.0;
    std::uint64_t records = 0;
    std::uint64_t playedMs = 0;  // recorded time that has been played, and how long that took
    std::uint64_t tookMs = 0;
};

// Told by the replay thread, looked at by the command's. Any thread.
class tReplaySession
{
public:
    // `begin` is called on the replay thread when everything is opened and before the first record is played: a jump
    // asked for there comes before anything is played or sent.
    explicit tReplaySession(std::function<void(const tReplayState&)> begin) : m_begin(std::move(begin)) {}

    tReplayState state() const;
    tStreamCounts table() const;
    void beginJump();     // before a jump: the end of what was played until then is no end
    void beginStretch();  // before a pause, and after it: the time between does not count as playing

    // What a player tells.
    void status(std::uint8_t status);
    void span(std::uint64_t firstMs, std::uint64_t lastMs);
    void passed(std::uint64_t timeMs, double progress);  // a record was played
    void count(const tStreamKey& stream, std::string_view message);

private:
    using tSteady = std::chrono::steady_clock;

    const std::function<void(const tReplayState&)> m_begin;
    mutable std::mutex m_mutex;
    bool m_jumping = false;  // guarded by m_mutex, as is everything below
    tReplayState m_state;
    tStreamCounts m_table;
    std::uint64_t m_stretchFirstMs = 0;  // 0 until the stretch has its first record
    tSteady::time_point m_stretchStart;
    std::uint64_t m_playedBefore = 0, m_tookBefore = 0;  // sums of the stretches before this one
};
}  // namespace tool

#endif
