#include "tools/commands/recordservice.h"

#include <cstring>
#include <fmt/format.h>

#include "KestovaUtils/timeparser.h"
#include "sessions/record/recordsession.h"
#include "tools/shell/console.h"
#include "tools/shell/units.h"

namespace tool
{
using namespace recordings;
using session::tRecordSession;

namespace
{
constexpr std::chrono::seconds cPeriod{5};  // of the metrics, and of the manager's status line

std::string statusText(const tRecordSession& session)
{
    const session::tRecorderState& state = session.state();
    return fmt::format("{}: {} datagrams, kernel dropped {}, not written {}, backlog {}, {} free", state.file,
                       total(state.streams).messages, state.allDiscarded(), state.lost, state.backlog,
                       sizeText(session.freeBytes()));
}
}  // namespace

tRecordService::tRecordService(const std::string& root, const std::string& metricsFile, tConsole& console)
    : m_root(root), m_metricsPath(metricsFile), m_console(console)
{
    if (!metricsFile.empty())
        m_metricsFile.emplace(metricsFile);
}

void tRecordService::onStart(const tRecordSession& session)
{
    m_manager.ready();
    m_heard.update(session.state().streams, utils::time::tTimeParser::GetCurrentTime_ms());
    report(session);
}

void tRecordService::update(tRecordSession& session)
{
    const auto now = tSteady::now();
    m_heard.update(session.state().streams, utils::time::tTimeParser::GetCurrentTime_ms());
    m_manager.advance(session.state().done, session.state().queued, now);
    if (m_hangUp.requested() && !session.startNextFile())
        m_console.note("kestova record: no file is open: the next one could not be started");
    if (now - m_reportedAt >= cPeriod)
        report(session);
}

void tRecordService::onFinishing(const tRecordSession& session)
{
    if (!m_stops)
        m_manager.stopping();
    m_stops = true;
    m_manager.advance(session.state().done, session.state().queued, tSteady::now());
}

void tRecordService::onFinished(const tRecordSession& session)
{
    m_heard.update(session.state().streams, utils::time::tTimeParser::GetCurrentTime_ms());
    writeMetrics(session);
}

void tRecordService::report(const tRecordSession& session)
{
    m_reportedAt = tSteady::now();
    if (m_manager.present())
        m_manager.status(statusText(session));
    writeMetrics(session);
}

void tRecordService::writeMetrics(const tRecordSession& session)
{
    if (!m_metricsFile)
        return;
    const session::tMetrics metrics{m_root,
                                    session.state(),
                                    m_heard,
                                    session.freeBytes(),
                                    session.files().size(),
                                    session.reclaimed().size(),
                                    session.clockOffsetMs()};
    const int error = m_metricsFile->write(metricsText(metrics));
    if (error != 0 && !m_failed)
        m_console.note(fmt::format("kestova record: cannot write {}: {}", m_metricsPath, std::strerror(error)));
    m_failed = error != 0;
}
}  // namespace tool
