// The report of kestova pcap on one capture, as text and as JSON.
#ifndef KESTOVA_TOOLS_COMMANDS_PCAPREPORT_H
#define KESTOVA_TOOLS_COMMANDS_PCAPREPORT_H

#include <string>
#include <vector>

#include "sessions/import/importsession.h"
#include "tools/shell/report.h"

namespace tool
{
// After the session's run().
class tPcapReport
{
public:
    // `radar` holds the streams that are named, none without a radar. `asked`: the selected streams were asked for one
    // by one, so that each of them is missed; otherwise they are the radar's, some of which may be silent.
    tPcapReport(const session::tImportSession& session, const session::tRadarStreams& radar, bool asked)
        : m_session(session), m_result(session.result()), m_radar(radar), m_asked(asked)
    {}

    std::vector<std::string> losses() const;  // a line for each kind of loss; none: the capture was read whole
    std::string text() const;
    tJson json(const std::string& path) const;  // without a schema

private:
    void addReaderLosses(std::vector<std::string>& losses) const;
    std::string streamName(const pcap::tUdpMulticast& row) const;
    std::string rowText(const pcap::tUdpMulticast& row) const;
    tJson rowJson(const pcap::tUdpMulticast& row) const;

    const session::tImportSession& m_session;
    const pcap::tPcapReadResult& m_result;
    const session::tRadarStreams& m_radar;
    const bool m_asked;
};
}  // namespace tool

#endif
