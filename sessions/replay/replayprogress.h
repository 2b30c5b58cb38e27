// tReplayProgress: the position of a replay, and counts of what it has played, stream by stream.
#ifndef KESTOVA_SESSIONS_REPLAY_REPLAYPROGRESS_H
#define KESTOVA_SESSIONS_REPLAY_REPLAYPROGRESS_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "KestovaRecordings/streamcounts.h"
#include "sessions/replay/recordedclock.h"

namespace session
{
struct tReplayState
{
    bool opened = false;                    // the span is known and playing has begun
    bool ended = false;                     // the last record has been played
    std::uint64_t firstMs = 0, lastMs = 0;  // of everything opened
    std::uint64_t timeMs = 0;               // of the record played last, or where a jump led since
    std::uint64_t clockMs = 0;              // on the clock of the recording, which goes on in silences
    bool atRecord = false;                  // timeMs is that of a record
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
    // Calls `again` there when the last record has been played; if that returns true a jump from inside it goes on.
    explicit tReplayProgress(
        std::function<void(const tReplayState&)> begin, std::function<bool()> again = [] { return false; })
        : m_begin(std::move(begin)), m_again(std::move(again))
    {}

    tReplayState state() const;
    recordings::tStreamCounts counts() const;
    std::string file() const;  // that is being played
    // Before a jump: ignores the end of the stretch before it. Calls `arrived` when the jump is at its place, before
    // the first record there, on the thread that jumps or plays.
    void beginJump(std::uint64_t toMs = 0, std::function<void()> arrived = nullptr);
    void setSpeed(double factor);
    void setPaused(bool paused);  // a pause does not count as playing

    // For replayers.
    void status(std::uint8_t status);
    void span(std::uint64_t firstMs, std::uint64_t lastMs);
    void passed(std::uint64_t timeMs, double fraction);  // a record was played; it may lie behind the span
    void playing(const std::string& file);               // that records come from
    void count(const recordings::tStreamKey& stream, std::string_view message);
    void uncountLast();  // the message counted last was not delivered

private:
    using tSteady = std::chrono::steady_clock;

    const std::function<void(const tReplayState&)> m_begin;
    const std::function<bool()> m_again;
    void end();
    void beginStretch();
    void moveTo(std::uint64_t timeMs);
    void arrive();

    mutable std::mutex m_mutex;
    enum
    {
        eThere,
        eLeaving,  // the stretch before the jump has not been stopped yet
        eArriving
    } m_jump = eThere;  // guarded by m_mutex, as is everything below
    std::uint64_t m_target = 0;
    std::function<void()> m_arrived;
    tRecordedClock m_clock;
    tReplayState m_state;
    std::string m_file;
    recordings::tStreamCounts m_counts;
    recordings::tStreamKey m_lastStream;  // of the message counted last
    recordings::tStreamCount m_before;    // of that stream, before it
    std::uint64_t m_stretchFirstMs = 0;   // 0 until the stretch has its first record
    tSteady::time_point m_stretchStart;
    std::uint64_t m_playedBefore = 0, m_tookBefore = 0;  // sums over the earlier stretches
};
}  // namespace session

#endif
