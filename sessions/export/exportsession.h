// tExportSession: writes the datagrams of recordings into a capture.
#ifndef KESTOVA_SESSIONS_EXPORT_EXPORTSESSION_H
#define KESTOVA_SESSIONS_EXPORT_EXPORTSESSION_H

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KestovaRecordings/capturewriter.h"
#include "KestovaRecordings/cat240translator.h"
#include "KestovaRecordings/packagecontents.h"
#include "KestovaRecordings/recordcursor.h"
#include "KestovaRecordings/streamchoice.h"
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

struct tExportOptions
{
    std::vector<std::string> paths;  // data files, and folders with data files
    std::string suffix = ".data";
    recordings::tStreamChoice streams;
    std::uint64_t fromMs = 0, toMs = UINT64_MAX;  // records before and from then on are left out
    NetAddress source{};                    // sender of every datagram: recordings do not hold it
    std::string capture;                    // to write; must not exist. In messages the name of `output`
    int output = -1;                        // a descriptor to write the capture to, in place of a file
    std::optional<tExportedCat240> cat240;  // in place of the datagrams as they were recorded
};

// One thread at a time.
class tExportSession
{
public:
    // Throws tFailure if there is nothing to export, none of the chosen streams either, or the capture exists or cannot
    // be made.
    explicit tExportSession(const tExportOptions& options);

    // Writes the whole capture. Calls `goOn` with the part that is done, every 1,024 records; false cancels. Throws
    // tFailure if it is cancelled, the capture cannot be written, or it would have no spoke in category 240, and leaves
    // no capture in a file then; tPipeClosed if nobody reads the output any more.
    void run(const std::function<bool(double fraction)>& goOn);

    const recordings::tStreamCounts& counts() const { return m_counts; }
    std::uint64_t frames() const { return m_frames; }
    std::uint64_t withoutDatagram() const { return m_noDatagram; }  // records left out: they are no datagrams
    std::uint64_t damaged() const { return m_records.damaged(); }   // records left out
    std::vector<recordings::tLeftOut> leftOut() const;              // paths and files
    recordings::tCat240Tally cat240() const
    {
        return m_translator ? m_translator->tally() : recordings::tCat240Tally();
    }

private:
    void requireRecording() const;
    void finish();
    void write(const recordings::tRecordingRecord& record);
    void add(const NetAddress& to, std::uint64_t timeUs, std::string_view payload);

    const tExportOptions m_options;
    const recordings::tFoundFiles m_found;
    recordings::tRecordCursor m_records;
    std::unique_ptr<recordings::tCaptureWriter> m_writer;
    const std::unique_ptr<recordings::tCat240Translator> m_translator;  // null without category 240
    const recordings::tCat240Translator::tSend m_addSpoke;
    recordings::tStreamCounts m_counts;
    std::uint16_t m_id = 0;
    std::uint64_t m_noDatagram = 0, m_frames = 0;
};
}  // namespace session

#endif
