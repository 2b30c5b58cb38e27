// Keeps the multi-radar service alive: sends it a query when it has been silent.
//
// Units    a steady clock, so that a wall clock set by GPS neither hides nor feigns silence.
// Threads  tServiceQuery runs one thread for its whole life; every operation may be called from any thread.
#ifndef KESTOVA_STORAGE_RADAR_SERVICEQUERY_H
#define KESTOVA_STORAGE_RADAR_SERVICEQUERY_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>

#include "KestovaStorage/internal/radar/transport.h"
#include "common/worker.h"

namespace Kestova
{
// When the service was last heard; never, at the start.
class tServiceSilence
{
public:
    using tTime = std::chrono::steady_clock::time_point;

    void heard(tTime now) { m_serviceRecTime = now.time_since_epoch().count(); }
    // Returns whether at least `duration` has passed since.
    bool lasts(tTime now, std::chrono::milliseconds duration) const;

private:
    static constexpr std::int64_t cNever = INT64_MIN;
    std::atomic<std::int64_t> m_serviceRecTime{cNever};
};

class tServiceQuery
{
public:
    struct tTiming
    {
        std::chrono::milliseconds period{5000};   // how often the silence is checked
        std::chrono::milliseconds silence{6000};  // how long it lasts before a query is sent
    };

    tServiceQuery() : tServiceQuery(tTiming()) {}
    explicit tServiceQuery(tTiming timing);
    ~tServiceQuery() { stop(); }

    void heard() { m_silence.heard(std::chrono::steady_clock::now()); }
    // Sets the sink for queries; null for none. After it has returned nothing is sent through the former sink.
    void setSink(std::unique_ptr<iDatagramSink> sink);
    // Sends one query if the service has been silent for long enough at `now` and there is a sink; returns whether it
    // did.
    bool queryIfSilent(tServiceSilence::tTime now);
    // Ends the thread; afterwards only queryIfSilent() sends.
    void stop() { m_multiRadarQueryThread.stop(); }

private:
    const tTiming m_timing;
    tServiceSilence m_silence;
    std::mutex m_senderMutex;                      // held while sending, which does not wait
    std::unique_ptr<iDatagramSink> m_querySender;  // guarded by m_senderMutex
    tWorker m_multiRadarQueryThread;
};
}  // namespace Kestova

#endif
