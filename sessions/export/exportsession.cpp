#include "sessions/export/exportsession.h"

#include <algorithm>
#include <filesystem>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/frames.h"
#include "KestovaRecordings/survey.h"
#include "UdpSocket/udpsocket.h"

namespace session
{
using namespace recordings;

namespace
{
constexpr std::uint64_t cStep = 1024;  // records between two looks at `goOn`
}  // namespace

tExportSession::tExportSession(const tExportOptions& options)
    : m_options(options), m_found(findAllRecordings(options.paths, options.suffix)),
      m_records(m_found.files, options.suffix),
      m_translator(options.cat240 ? std::make_unique<tCat240Translator>(options.cat240->layouts) : nullptr),
      m_addSpoke([this](std::string_view datagram, const tMessagePlace& place) {
          const NetAddress& to = m_options.cat240->group;
          add(to, place.number, datagram);
          m_counts[tStreamKey::of(eImageStream, to.ip, net::NtoHs(to.port))].add(datagram);
      })
{
    requireRecording();
    requireStreams(m_found.files, options.streams);
    if (options.output < 0 && std::filesystem::exists(options.capture))
        throw tFailure(options.capture + " exists already: remove it, or choose another name");
    m_writer = options.output < 0 ? std::make_unique<tCaptureWriter>(options.capture)
                                  : std::make_unique<tCaptureWriter>(options.output, options.capture);
}

// A file among others that is none is left out; where there is no other, nothing can be done.
void tExportSession::requireRecording() const
{
    if (m_records.files() != 0)
        return;
    const std::vector<tLeftOut> all = leftOut();
    if (all.size() == 1)
        throw tFailure(all.front().path + ": " + all.front().reason);
    throw tFailure("none of " + std::to_string(all.size()) + " files and folders holds a recording; the first is " +
                   all.front().path + ": " + all.front().reason);
}

std::vector<tLeftOut> tExportSession::leftOut() const
{
    std::vector<tLeftOut> all = m_found.leftOut;
    for (tLeftOut file : m_records.leftOut())
    {
        file.asked = std::find(m_options.paths.begin(), m_options.paths.end(), file.path) != m_options.paths.end();
        all.push_back(std::move(file));
    }
    return all;
}

void tExportSession::run(const std::function<bool(double)>& goOn)
{
    tRecordingRecord record{};
    for (std::uint64_t i = 0; m_records.next(record); ++i)
    {
        if (i % cStep == 0 && !goOn(static_cast<double>(i) / static_cast<double>(m_records.records())))
            throw tFailure("interrupted; " + m_options.capture +
                           (m_options.output < 0 ? " was not written" : " has a part of the recording only"));
        write(record);
    }
    finish();
}

void tExportSession::finish()
{
    if (m_translator)
        m_translator->finish(m_addSpoke);
    if (m_translator && m_counts.empty())
        throw tFailure("no message is a spoke by the layout: see --layout");
    m_writer->finish();
}

void tExportSession::write(const tRecordingRecord& record)
{
    if (record.timeMs < m_options.fromMs || record.timeMs >= m_options.toMs)
        return;
    const auto package = viewPackage(record.bytes);
    if (!package || package->ip == 0 || package->port == 0 || package->payload.size() > cMaxDatagram)
    {
        ++m_noDatagram;
        return;
    }
    if (!m_options.streams.includes(package->info.rwType))
        return;
    const std::uint64_t timeUs = record.timeMs * 1000 + static_cast<std::uint64_t>(std::max(0, record.fineTime));
    if (m_translator)
    {
        m_translator->take(*package, {record.timeMs, timeUs}, m_addSpoke);
        return;
    }
    add({package->ip, net::HtoNs(package->port)}, timeUs, package->payload);
    m_counts[tStreamKey::of(package->info.rwType, package->ip, package->port)].add(package->payload);
}

void tExportSession::add(const NetAddress& to, std::uint64_t timeUs, std::string_view payload)
{
    for (const std::string& frame : framesOf(m_options.source, to, payload, m_id++))
    {
        m_writer->add(timeUs, frame);
        ++m_frames;
    }
}
}  // namespace session
