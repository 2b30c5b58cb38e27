#include "sessions/import/importsession.h"

#include <filesystem>

#include "KestovaRecordings/capturekind.h"

namespace session
{
namespace
{
const tImportOptions& requireReadable(const tImportOptions& options)
{
    recordings::requireReadableCapture(options.path);
    return options;
}
}  // namespace

tImportSession::tImportSession(const tImportOptions& options)
    : m_options(requireReadable(options)), m_reader(options.path, this)
{
    if (!options.root.empty())
        m_recorder =
            std::make_unique<tImportRecorder>(options.root, std::filesystem::path(options.path).stem().string());
}

void tImportSession::run(std::function<bool(const tImportProgress&)> goOn)
{
    m_goOn = std::move(goOn);
    m_reader.SetDatagramObserver(this);
    m_reader.ReportAtEndOnly(true);
    m_reader.KeepReading(true);
    m_reader.Read({});
    m_result = m_reader.GetReadResult();
    for (const pcap::tUdpMulticast& stream : m_reader.GetUdpMulticast())
        if (isSelected({stream.address, stream.port}) || (m_options.all && stream.address.empty()))
            m_streams.push_back(stream);
    if (m_recorder && m_recorder->recorded() != 0)
        m_recorder->finish();
}

tCaptureSpan tImportSession::spanOf(const pcap::tUdpMulticast& stream) const
{
    const auto span = m_spans.find({stream.address, stream.port});
    return span != m_spans.end() ? span->second : tCaptureSpan();
}

std::vector<tCaptureGroup> tImportSession::silent() const
{
    std::vector<tCaptureGroup> groups;
    for (const tCaptureGroup& group : m_options.selection)
        if (m_spans.count(group) == 0)
            groups.push_back(group);
    return groups;
}

bool tImportSession::isSelected(const tCaptureGroup& group) const
{
    return m_options.all || m_options.selection.count(group) != 0;
}

void tImportSession::UpdatePcapReadProgress(double percent, tTimes_ms time)
{
    if (!m_goOn({percent / 100, time, m_spans.size()}))
        m_reader.StopRead();
}

void tImportSession::UpdatePcapDatagram(const pcap::tPcapDatagram& datagram)
{
    const tCaptureGroup group(datagram.address, datagram.port);
    if (!isSelected(group))
        return;
    tCaptureSpan& span = m_spans[group];
    if (span.firstUs == 0)
        span.firstUs = datagram.time_us;
    span.lastUs = datagram.time_us;
    span.bytes += static_cast<std::uint64_t>(datagram.len);
    if (m_recorder)
        m_recorder->add(datagram);
}
}  // namespace session
