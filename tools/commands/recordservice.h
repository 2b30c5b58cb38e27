// tRecordService: what a recording shows to those who run it as a service: the service manager, the collector of its
// metrics, and whoever sends SIGHUP to have the next file.
#ifndef KESTOVA_TOOLS_COMMANDS_RECORDSERVICE_H
#define KESTOVA_TOOLS_COMMANDS_RECORDSERVICE_H

#include <chrono>
#include <optional>
#include <string>

#include "sessions/record/metrics.h"
#include "tools/shell/hangup.h"
#include "tools/shell/servicemanager.h"

namespace session
{
class tRecordSession;
}

namespace tool
{
class tConsole;

// One thread. Construct it behind tStopSignal and before the session, which it is given with each call.
class tRecordService
{
public:
    // An empty `metricsFile` is none. Throws tFailure if it cannot be written.
    tRecordService(const std::string& root, const std::string& metricsFile, tConsole& console);

    void onStart(const session::tRecordSession& session);
    // Call it after every updateState().
    void update(session::tRecordSession& session);
    // While the session finishes: the watchdog is fed, SIGHUP does nothing any more.
    void onFinishing(const session::tRecordSession& session);
    void onFinished(const session::tRecordSession& session);

private:
    using tSteady = std::chrono::steady_clock;

    void report(const session::tRecordSession& session);
    void writeMetrics(const session::tRecordSession& session);

    const std::string m_root;
    const std::string m_metricsPath;
    tConsole& m_console;
    tHangUp m_hangUp;
    tServiceManager m_manager;
    std::optional<session::tMetricsFile> m_metricsFile;
    session::tLastHeard m_heard;
    tSteady::time_point m_reportedAt;
    bool m_stops = false;
    bool m_failed = false;  // the metrics could not be written the last time
};
}  // namespace tool

#endif
