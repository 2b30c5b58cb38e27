// tDiskWatch: warns before the disk of a recording is full.
//
// Threads  one at a time. Time is passed in; nothing is measured here.
#ifndef KESTOVA_SESSIONS_RECORD_DISKWATCH_H
#define KESTOVA_SESSIONS_RECORD_DISKWATCH_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>

namespace session
{
struct tDiskLeft
{
    std::uint64_t bytes = 0;               // free
    double bytesPerSecond = 0.0;           // what is recorded; 0 while that is not known
    std::optional<std::uint64_t> seconds;  // until the disk is full at this rate
};

class tDiskWatch
{
public:
    using tTime = std::chrono::steady_clock::time_point;

    // Takes the free space and what has been recorded in bytes. Returns what is left when it becomes less than 1 GiB,
    // and when it becomes less than an hour at the rate of the last ten seconds; each again after there was more.
    std::optional<tDiskLeft> update(std::uint64_t freeBytes, std::uint64_t recordedBytes, tTime now);

private:
    double rate(std::uint64_t recordedBytes, tTime now);

    struct tSample
    {
        tTime time;
        std::uint64_t bytes;
    };
    std::deque<tSample> m_samples;  // of the last ten seconds
    bool m_isLow = false;
    bool m_isShort = false;
};
}  // namespace session

#endif
