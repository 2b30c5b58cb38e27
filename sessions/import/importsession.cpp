#include "sessions/import/importsession.h"

#include <filesystem>

namespace session
{
namespace
{
// Files of the recording are named after the capture.
std::string nameOf(const std::string& path)
{
    return path == recordings::cStandardInput ? "capture" : std::filesystem::path(path).stem().string();
}
}  // namespace

tImportSession::tImportSession(const tImportOptions& options, tGoOn goOn)
    : m_options(options), m_goOn(std::move(goOn)), m_reader(options.path, this)
{
    if (!recordings::isPlainCapture(options.path))
        m_frames = std::make_unique<recordings::tFrameReader>(options.path,
                                                              [this](std::uint64_t bytes) { return bytesRead(bytes); });
    if (!options.root.empty())
        m_recorder = std::make_unique<tImportRecorder>(options.root, nameOf(options.path));
}

void tImportSession::run()
{
    m_reader.SetDatagramObserver(this);
    m_reader.ReportAtEndOnly(true);
    m_reader.KeepReading(true);
    m_reader.ReadTagsAndOptions(true);
    if (m_frames)
        m_reader.ReadFrames(*m_frames, {});
    else
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

bool tImportSession::bytesRead(std::uint64_t bytes)
{
    const std::uint64_t size = m_frames ? m_frames->size() : 0;
    const double fraction = size != 0 ? static_cast<double>(bytes) / static_cast<double>(size) : -1.0;
    const bool goesOn = m_goOn({fraction, bytes, m_timeMs, m_spans.size()});
    if (!goesOn)
        m_reader.StopRead();
    return goesOn;
}

void tImportSession::UpdatePcapReadProgress(double percent, tTimes_ms time)
{
    if (!m_frames && !m_goOn({percent / 100, 0, time, m_spans.size()}))
        m_reader.StopRead();
}

void tImportSession::UpdatePcapDatagram(const pcap::tPcapDatagram& datagram)
{
    const tCaptureGroup group(datagram.address, datagram.port);
    m_timeMs = datagram.time_us / 1000;
    if (!isSelected(group))
        return;
    m_spans[group].add(datagram.time_us, static_cast<std::uint64_t>(datagram.len));
    if (!m_recorder)
        return;
    const auto stream = m_options.streams.find(group);
    m_recorder->add(datagram, stream != m_options.streams.end() ? &stream->second : nullptr);
}
}  // namespace session
