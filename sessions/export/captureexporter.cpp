#include "sessions/export/captureexporter.h"

#include <filesystem>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/frames.h"
#include "UdpSocket/udpsocket.h"

namespace session
{
using namespace recordings;

tCaptureExporter::tCaptureExporter(tCaptureOptions options)
    : m_options(std::move(options)),
      m_translator(m_options.cat240 ? std::make_unique<tCat240Translator>(m_options.cat240->layouts) : nullptr),
      m_addSpoke([this](std::string_view datagram, const tMessagePlace& place) {
          const NetAddress& to = m_options.cat240->group;
          add(to, place.number, datagram);
          m_counts[tStreamKey::of(eImageStream, to.ip, net::NtoHs(to.port))].add(datagram);
      })
{
    if (m_options.output < 0 && std::filesystem::exists(m_options.capture))
        throw tFailure(m_options.capture + " exists already: remove it, or choose another name");
    m_writer = m_options.output < 0 ? std::make_unique<tCaptureWriter>(m_options.capture)
                                    : std::make_unique<tCaptureWriter>(m_options.output, m_options.capture);
}

bool tCaptureExporter::take(const tExportedPackage& package)
{
    const tPackageContents& contents = package.contents;
    if (contents.ip == 0 || contents.port == 0 || contents.payload.size() > cMaxDatagram)
        return false;
    if (m_translator)
    {
        m_translator->take(contents, {package.timeMs, package.timeUs}, m_addSpoke);
        return true;
    }
    add({contents.ip, net::HtoNs(contents.port)}, package.timeUs, contents.payload);
    m_counts[tStreamKey::of(contents.info.rwType, contents.ip, contents.port)].add(contents.payload);
    return true;
}

void tCaptureExporter::finish()
{
    if (m_translator)
        m_translator->finish(m_addSpoke);
    if (m_translator && m_counts.empty())
        throw tFailure("no message is a spoke by the layout: see --layout");
    m_writer->finish();
}

void tCaptureExporter::add(const NetAddress& to, std::uint64_t timeUs, std::string_view payload)
{
    for (const std::string& frame : framesOf(m_options.source, to, payload, m_id++))
    {
        m_writer->add(timeUs, frame);
        ++m_frames;
    }
}
}  // namespace session
