// iWriteObserver: follows what a storage object writes, segment by segment.
#ifndef KESTOVA_WRITEOBSERVER_H
#define KESTOVA_WRITEOBSERVER_H

#include <stddef.h>
#include <stdint.h>

#include "KestovaStorage/finetimesformat.h"
#include "UdpSocket/kestovaapi.h"

namespace storage
{
// One segment that is in the file with its index record.
struct tWrittenSegment
{
    const char* bytes;  // valid during the call
    uint32_t len;
    uint64_t timeMs;  // as its index record has it
    uint16_t us;      // microseconds within timeMs, 0 to 999, or cNoFineTime
    uint64_t pos;     // offset of the first byte in the file
};

// The sequence of a file: FileStarted, SegmentsWritten and SegmentsLost, FileFinished; with compression FileCompressed
// some time later. The next file starts after the one before has finished.
//
// Calls come one at a time, on threads of the storage object, beside the writing of what follows: the writer waits for
// the observer only if it is megabytes behind. FileCompressed alone may come while another call is under way. What ends
// a file (FinishWrite, a new file, destruction) returns when FileFinished has returned: hold no lock there that a call
// takes. From inside a call, do not call what starts or finishes files. Must not throw.
class KESTOVA_API iWriteObserver
{
public:
    virtual ~iWriteObserver() = default;
    // The file exists and has no segment yet. `id` is random; the file's fine times have it, too.
    virtual void FileStarted(const char* path, const tFileId& id) = 0;
    // Segments in the order of the file, after they and their index records have been written.
    virtual void SegmentsWritten(const tWrittenSegment* segments, size_t count) = 0;
    // So many segments of the file could not be written.
    virtual void SegmentsLost(uint64_t count) = 0;
    // The index head is written; the file takes no more.
    virtual void FileFinished(const char* path) = 0;
    // The compressed form has taken the file's place. On the compression thread.
    virtual void FileCompressed(const char* path, const char* compressedPath) = 0;
};
}  // namespace storage

#endif
