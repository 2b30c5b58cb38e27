// tOpenedFiles: the files of one replay, their play order, and the bytes of their segments.
//
// Owner    owns the files' indexes, buffers that grow to the longest segment read, and a bounded number of descriptors
//          and decoders: thousands of files can be open at once.
// Threads  starts none and locks nothing.
// Errors   files that cannot be read or are no data files are left out; read() returns no value for a segment that
//          cannot be read.
#ifndef KESTOVA_STORAGE_PLAYBACK_OPENEDFILES_H
#define KESTOVA_STORAGE_PLAYBACK_OPENEDFILES_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KestovaStorage/internal/datafile/datafilereader.h"
#include "KestovaStorage/internal/datafile/segmentreader.h"
#include "KestovaStorage/internal/playback/timeline.h"

namespace storage
{
class tOpenedFiles
{
public:
    using tCancelled = std::function<bool()>;

    // Adds each of `opened`, a data file, or every file below a folder whose name ends in `suffix`, and puts all
    // segments in order. Stops early, with an unusable state, once `cancelled` returns true.
    void open(const std::vector<std::string>& opened, const std::string& suffix, const tCancelled& cancelled);
    void clear();

    const tTimeline& timeline() const { return m_timeline; }

    struct tSegment
    {
        std::uint64_t time;  // ms
        const char* data;    // until the next read
        std::uint32_t len;
        const std::string& fileName;
    };
    std::optional<tSegment> read(const tTimelineSegment& place);

private:
    void addFile(const std::string& path);
    void putInOrder(const tCancelled& cancelled);
    void keepOpen(tDataFileReader& file);

    std::vector<std::unique_ptr<tDataFileReader>> m_files;
    std::deque<tDataFileReader*> m_openFiles;  // those with a descriptor, the longest unused first
    tTimeline m_timeline;
    std::unique_ptr<tSegmentReader> m_reader = std::make_unique<tSegmentReader>();
};
}  // namespace storage

#endif
