// tOpenedFiles: the files of one replay, their play order, and the bytes of their segments.
//
// Owner    owns what is kept of the files' indexes, and a bounded number of descriptors, decoders, and windows on the
//          segments, which grow to the longest segment read: thousands of files can be open at once.
// Threads  starts none and locks nothing.
// Errors   files that cannot be read or are no data files are left out; read() returns no value for a segment that
//          cannot be read.
#ifndef KESTOVA_STORAGE_PLAYBACK_OPENEDFILES_H
#define KESTOVA_STORAGE_PLAYBACK_OPENEDFILES_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KestovaStorage/internal/datafile/datafilereader.h"
#include "KestovaStorage/internal/datafile/finetimes.h"
#include "KestovaStorage/internal/datafile/segmentreader.h"
#include "KestovaStorage/internal/playback/timeline.h"
#include "KestovaStorage/replaysource.h"
#include "common/descriptor.h"

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
    // Returns the files, valid until they change, each with the number of its index slots up to the last whole record.
    std::vector<tReplayedFile> files() const;

    struct tSegment
    {
        std::uint64_t time;  // ms
        const char* data;    // until the next read
        std::uint32_t len;
        const std::string& fileName;
    };
    // Reads the segment of an index record of file number `file`.
    std::optional<tSegment> read(std::uint32_t file, const tIndexSlot& record);
    // Returns the microseconds of a segment of the timeline, whose index record it is; -1 if they are not known.
    int fineTime(const tTimelineSegment& segment, const tIndexSlot& record);

private:
    // Where a record stands in its file's index that was put in order of time: its segment tells.
    struct tNumber
    {
        std::uint64_t firstBit;  // of the segment in the file
        std::uint32_t slot;
        bool operator<(const tNumber& other) const { return firstBit < other.firstBit; }
    };
    struct tFile
    {
        std::unique_ptr<tDataFileReader> reader;
        std::optional<tFineTimes> fineTimes;       // of a file that was played from
        std::vector<tNumber> numbers;              // of a file out of order that has fine times
        std::unique_ptr<tSegmentReader> segments;  // of an open file that was read from
        std::uint64_t lastUse = 0;
        bool open = false;  // has a descriptor
    };
    bool addFile(const std::string& path);
    void markFolder(const std::string& path);
    static void keepNumbers(tFile& file);
    void putInOrder(const tCancelled& cancelled);
    tFile& use(std::uint32_t file);
    void closeLongestUnused();

    std::vector<tFile> m_files;
    std::vector<std::uint32_t> m_open;  // the numbers of the open ones
    std::uint64_t m_uses = 0;
    std::map<std::string, tDescriptor> m_marks;  // of folders, on their first files: others see that they are played
    tTimeline m_timeline;
};
}  // namespace storage

#endif
