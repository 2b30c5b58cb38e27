// One replay as its observer sees it: what came, stream by stream, and where playing stands.
#ifndef KESTOVA_TOOLS_REPLAYSESSION_H
#define KESTOVA_TOOLS_REPLAYSESSION_H

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "KestovaStorage/datastorageio.h"
#include "tools/streamkinds.h"
#include "tools/streamtable.h"

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

// Called by the replay thread, looked at by the command's. Any thread.
class tReplaySession : public storage::iDataReadReplayObserver
{
public:
    // `jumps`: playing begins with a jump; what comes before it is not counted.
    tReplaySession(const tStreamChoice& streams, bool jumps) : m_streams(streams), m_ignore(jumps) {}

    tReplayState state() const;
    tStreamTable table() const;
    std::map<std::string, std::uint64_t> recordsPerFile() const;  // all streams, chosen or not
    void beginPass();                                             // before playing begins again

private:
    using tSteady = std::chrono::steady_clock;

    void UpdateReplayStatus(std::uint8_t status) override;
    void UpdateDataTimeSpan(std::uint64_t firstTimeMs, std::uint64_t lastTimeMs) override;
    void UpdateReplayData(std::uint64_t timeMs, double progress, const char* data, unsigned int len,
                          std::string fileName) override;
    void follow(std::uint64_t timeMs);
    void count(std::string_view segment);

    const tStreamChoice m_streams;
    mutable std::mutex m_mutex;
    bool m_ignore;  // guarded by m_mutex, as is everything below
    tReplayState m_state;
    tStreamTable m_table;
    std::map<std::string, std::uint64_t> m_perFile;
    std::uint64_t m_passFirstMs = 0;  // 0 until the pass has its first record
    tSteady::time_point m_passStart;
    std::uint64_t m_playedBefore = 0, m_tookBefore = 0;  // sums of the passes before this one
};
}  // namespace tool

#endif
