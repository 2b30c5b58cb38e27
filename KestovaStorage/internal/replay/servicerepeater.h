// Keeps the multi-radar service of a recording alive: its messages are sent again for as long as they are replayed.
//
// Units    seconds of a steady clock, so that a wall clock set by GPS neither keeps nor drops messages.
// Threads  tServiceRepeater runs one thread for its whole life; every operation may be called from any thread.
#ifndef KESTOVA_STORAGE_REPLAY_SERVICEREPEATER_H
#define KESTOVA_STORAGE_REPLAY_SERVICEREPEATER_H

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "KestovaStorage/internal/radar/transport.h"
#include "common/worker.h"

namespace Kestova
{
// The messages to repeat and when they were added. One thread at a time.
class tServiceMessages
{
public:
    using tTime = std::chrono::seconds;
    static constexpr tTime cLifetime{9};

    // Kept: a message that is known keeps its time. It expires after its lifetime and may then be added again.
    void take(std::string_view message, tTime now) { m_messages.try_emplace(std::string(message), now); }
    // Drops expired messages; returns the others, in order.
    std::vector<std::string> alive(tTime now);
    void clear() { m_messages.clear(); }

private:
    std::map<std::string, tTime> m_messages;
};

class tServiceRepeater
{
public:
    static constexpr std::chrono::milliseconds cPeriod{3000};

    // Sends on the interface with this address from now on, every `period`.
    explicit tServiceRepeater(std::uint32_t localIp, std::chrono::milliseconds period = cPeriod,
                              iTransport& transport = defaultTransport());
    ~tServiceRepeater();

    void take(std::string_view message);
    void clear();

private:
    void sendAlive();

    std::mutex m_radarServicesMutex;
    tServiceMessages m_radarServicesMap;  // guarded by m_radarServicesMutex
    const std::unique_ptr<iDatagramSink> m_sink;
    tWorker m_servicesThread;
};
}  // namespace Kestova

#endif
