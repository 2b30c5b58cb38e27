// tExportSession: reads recordings for an exporter, which writes them in the format of another program.
#ifndef KESTOVA_SESSIONS_EXPORT_EXPORTSESSION_H
#define KESTOVA_SESSIONS_EXPORT_EXPORTSESSION_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "KestovaRecordings/archive.h"
#include "KestovaRecordings/exporter.h"
#include "KestovaRecordings/moment.h"
#include "KestovaRecordings/recordcursor.h"
#include "KestovaRecordings/streamchoice.h"

namespace session
{
struct tExportOptions
{
    std::vector<std::string> paths;  // data files, and folders with data files
    std::string suffix = ".data";
    recordings::tStreamChoice streams;
    std::optional<recordings::tMoment> start, end;  // of the span; its end is not in it
    std::string output;                             // what is written, for messages
    bool isStream = false;                          // what is written stays where it is if the export is cancelled
    // Called once there is something to export, with its data files.
    std::function<recordings::tExporter(const std::vector<std::string>& files)> open;
};

// One thread at a time.
class tExportSession
{
public:
    // Throws tFailure if there is nothing to export, none of the chosen streams either, or the output exists or cannot
    // be made.
    explicit tExportSession(const tExportOptions& options);

    // Writes the whole output. Calls `goOn` with the part that is done, every 1,024 records; false cancels. Throws
    // tFailure if it is cancelled, the output cannot be written, or would hold nothing, and leaves no file then;
    // tPipeClosed if nobody reads the output any more.
    void run(const std::function<bool(double fraction)>& goOn);

    const recordings::iExporter& exporter() const { return *m_exporter; }
    std::uint64_t packages() const { return m_packages; }          // that the exporter took
    std::uint64_t withoutPlace() const { return m_withoutPlace; }  // records left out: the format has no place for them
    std::uint64_t damaged() const { return m_records.damaged(); }  // records left out
    std::vector<recordings::tLeftOut> leftOut() const;             // paths and files

private:
    void requireRecording() const;
    void limit();
    void write(const recordings::tRecordingRecord& record);

    const tExportOptions m_options;
    const recordings::tFoundFiles m_found;
    recordings::tRecordCursor m_records;
    recordings::tExporter m_exporter;
    std::uint64_t m_packages = 0, m_withoutPlace = 0;
};
}  // namespace session

#endif
