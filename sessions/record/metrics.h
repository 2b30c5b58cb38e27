// The state of a recording as text that Prometheus reads, and the file that holds it.
#ifndef KESTOVA_SESSIONS_RECORD_METRICS_H
#define KESTOVA_SESSIONS_RECORD_METRICS_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "sessions/record/recorder.h"

namespace session
{
// When each stream was last heard, found from counts that are read several times a second.
class tLastHeard
{
public:
    // `nowMs` is the system time in ms since the epoch.
    void update(const recordings::tStreamCounts& counts, std::uint64_t nowMs);
    std::uint64_t of(const recordings::tStreamKey& stream) const;  // in ms since the epoch; 0 for never

private:
    struct tHeard
    {
        std::uint64_t messages = 0;
        std::uint64_t atMs = 0;
    };
    std::map<recordings::tStreamKey, tHeard> m_streams;
};

struct tMetrics
{
    std::string root;  // the storage root, a label of every value
    const tRecorderState& state;
    const tLastHeard& heard;
    std::uint64_t freeBytes = 0;
    std::size_t files = 0;                // begun
    std::size_t deleted = 0;              // data files deleted to make room
    std::optional<double> clockOffsetMs;  // receive time minus GPS time; nothing while there is no GPS time
};

// Returns the metrics in the text exposition format, names beginning with "kestova_".
std::string metricsText(const tMetrics& metrics);

// Replaces a file as a whole: a reader sees the text before or the text after.
class tMetricsFile
{
public:
    // Throws tFailure if no file can be made in the folder of `path`.
    explicit tMetricsFile(const std::string& path);
    // Returns 0, or the errno of what failed; the file is as before then.
    int write(const std::string& text) const;

private:
    const std::string m_path;
};
}  // namespace session

#endif
