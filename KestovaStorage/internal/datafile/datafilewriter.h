// tDataFileWriter: one data file while it is being recorded.
//
// Shapes   append() takes segments of 1 byte or more from a block of the queue; each adds one index record. The first
//          segment starts at cPayloadPos, each next one at the end of the last.
// Units    offsets in bytes from the start of the file; times in ms since the Unix epoch.
// Owner    owns the descriptor; a block is needed during the call only.
// Threads  starts none and locks nothing: one thread at a time, but sync() from any.
// Errors   a segment whose write fails gets no index record and is counted in lost(); the first failure of a file is
//          reported through perror. The next call tries again: recording continues when the disk has room.
// Lock     the writer holds the file's lock (writinglock.h) until it has finished the file, where there are locks.
// Death    nothing waits in user space and the index never runs ahead of the segments: kill the process at any moment
//          and the file holds whole segments with whole records, ended by a record of zeros.
#ifndef KESTOVA_STORAGE_DATAFILE_DATAFILEWRITER_H
#define KESTOVA_STORAGE_DATAFILE_DATAFILEWRITER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "KestovaStorage/datafileformat.h"
#include "KestovaStorage/internal/buffers/batchqueue.h"
#include "KestovaStorage/internal/datafile/finetimes.h"
#include "KestovaStorage/internal/datafile/indexoutput.h"
#include "common/descriptor.h"

namespace storage
{
class iSegmentEncoder;

// A place in a block: segments before it have been processed.
struct tBlockCursor
{
    const tSegmentBlock* block;
    std::size_t segment = 0;  // number of the next segment
    std::size_t offset = 0;   // of its first byte in the block

    bool atEnd() const { return segment == block->count(); }
};

// The segments that the last append() has put into the file.
struct tWrittenRun
{
    const char* bytes = nullptr;  // of the first one, in the block
    std::size_t count = 0;
    std::vector<tIndexSlot> slots;         // `count` at least
    std::vector<std::uint16_t> fineTimes;  // as many as slots, or none if they are not kept
};

class tDataFileWriter
{
public:
    // Creates the file. Returns null, with errno set, if that fails or the file exists.
    static std::unique_ptr<tDataFileWriter> create(const std::string& path);

    // Writes fine times beside the file, before anything is appended.
    void keepFineTimes(const std::string& path, const tFileId& id);
    // Has run() keep fine times, too.
    void reportFineTimes() { m_usesFineTimes = true; }

    // Writes segments from the cursor on and moves it behind those processed, written or lost: at least one, at most
    // the rest of the block or up to the segment that fills the file. `now` is the time of segments whose tag is 0.
    void append(tBlockCursor& cursor, std::uint64_t now);
    // The caller may swap the vectors for others.
    tWrittenRun& run() { return m_run; }

    // Returns whether the file takes no further segment: the last one started beyond cLastSegmentPos, or the index is
    // full.
    bool isFull() const;

    // Counts the segments recorded from now on for their code; null stops counting. Not owned.
    void countInto(iSegmentEncoder* encoder) { m_encoder = encoder; }

    void finish();  // writes the index head
    void sync();    // to the disk
    std::uint64_t lost() const { return m_lost; }

private:
    explicit tDataFileWriter(tDescriptor file, std::string path);

    struct tPlan
    {
        std::size_t segments = 0;
        std::size_t bytes = 0;
    };
    tPlan plan(const tBlockCursor& cursor, std::uint64_t now);
    std::size_t wholeSegments(std::size_t bytes) const;
    bool publish(std::size_t segments);
    void accept(const char* bytes, std::size_t segments);
    std::size_t writeAt(const void* data, std::size_t len, std::uint64_t pos);

    tDescriptor m_file;
    std::string m_path;
    iSegmentEncoder* m_encoder = nullptr;
    tIndexOutput m_output;
    std::uint64_t m_payloadEnd = cPayloadPos;
    std::uint64_t m_lastStart = 0;  // start of the last segment
    tWrittenRun m_run;              // the current one: its slots are those planned
    bool m_usesFineTimes = false;
    std::unique_ptr<tFineTimesOutput> m_fineTimes;  // null if they are not kept
    std::uint64_t m_lost = 0;
    bool m_failureReported = false;
};
}  // namespace storage

#endif
