// tCaptureExporter: the datagrams of recordings as a capture for Wireshark and tcpdump.
#ifndef KESTOVA_SESSIONS_EXPORT_CAPTUREEXPORTER_H
#define KESTOVA_SESSIONS_EXPORT_CAPTUREEXPORTER_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KestovaRecordings/capturewriter.h"
#include "KestovaRecordings/cat240translator.h"
#include "KestovaRecordings/exporter.h"
#include "KestovaRecordings/streamcounts.h"
#include "UdpSocket/netaddress.h"

namespace session
{
// Spokes alone, as ASTERIX category 240 to one group.
struct tExportedCat240
{
    NetAddress group{};
    std::vector<utils::tSpokeLayout> layouts;
};

struct tCaptureOptions
{
    std::string capture;                    // to write; must not exist. In messages the name of `output`
    int output = -1;                        // a descriptor to write the capture to, in place of a file
    NetAddress source{};                    // sender of every datagram: recordings do not hold it
    std::optional<tExportedCat240> cat240;  // in place of the datagrams as they were recorded
};

// One thread at a time. Throws tPipeClosed if nobody reads the output any more.
class tCaptureExporter final : public recordings::iExporter
{
public:
    explicit tCaptureExporter(tCaptureOptions options);

    bool take(const recordings::tExportedPackage& package) override;
    void finish() override;
    std::vector<recordings::tExportedPart> written() const override { return {{m_options.capture, m_frames}}; }

    const recordings::tStreamCounts& counts() const { return m_counts; }  // of the datagrams in the capture
    std::uint64_t frames() const { return m_frames; }
    recordings::tCat240Tally cat240() const
    {
        return m_translator ? m_translator->tally() : recordings::tCat240Tally();
    }

private:
    void add(const NetAddress& to, std::uint64_t timeUs, std::string_view payload);

    const tCaptureOptions m_options;
    std::unique_ptr<recordings::tCaptureWriter> m_writer;
    const std::unique_ptr<recordings::tCat240Translator> m_translator;  // null without category 240
    const recordings::tCat240Translator::tSend m_addSpoke;
    recordings::tStreamCounts m_counts;
    std::uint16_t m_id = 0;
    std::uint64_t m_frames = 0;
};
}  // namespace session

#endif
