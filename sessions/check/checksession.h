// tCheckSession: looks, before a voyage, at everything that a recording with these options depends on. Records nothing.
#ifndef KESTOVA_SESSIONS_CHECK_CHECKSESSION_H
#define KESTOVA_SESSIONS_CHECK_CHECKSESSION_H

#include <cstdint>
#include <functional>
#include <string>

#include "sessions/check/check.h"
#include "sessions/check/networkchecks.h"
#include "sessions/monitor/monitorsession.h"
#include "sessions/record/recordsession.h"

namespace session
{
struct tCheckOptions
{
    tRecordOptions record;  // root empty: the disk is left out
    std::uint64_t listenMs = 5000;
};

class tCheckSession
{
public:
    // Throws tFailure if there is no such radar, or no address for its streams.
    explicit tCheckSession(const tCheckOptions& options);

    // Calls `waiting` several times a second while it listens; if that returns false, listens no longer.
    tChecks run(const std::function<bool(std::uint64_t elapsedMs)>& waiting);
    std::uint64_t listenedMs() const { return m_listenedMs; }  // fewer than wanted if it was ended

private:
    void checkNetwork();
    void checkReception(const std::function<bool(std::uint64_t elapsedMs)>& waiting);
    void skipReception();
    void listen(tMonitorSession& session, const std::function<bool(std::uint64_t elapsedMs)>& waiting);
    void checkHeard();
    void checkDisk();
    const tLink* link() const;
    bool isSilent() const;
    double bytesPerSecond() const;

    const tCheckOptions m_options;
    const std::vector<tStreamGroup> m_groups;
    std::vector<tLink> m_links;
    std::uint32_t m_localIp = 0;    // 0: the kernel chooses
    std::uint32_t m_receiving = 0;  // the address of the interface, also where the kernel chooses it; 0 for none
    tChecks m_checks;
    std::vector<tMonitoredStream> m_heard;
    std::uint64_t m_listenedMs = 0;
};

// Returns the check of one stream after so long.
tCheck checkStream(const tMonitoredStream& stream, std::uint64_t listenedMs);
}  // namespace session

#endif
