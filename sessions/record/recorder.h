// iRecorder: a recording in progress, of a radar of a directory or of plain groups.
#ifndef KESTOVA_SESSIONS_RECORD_RECORDER_H
#define KESTOVA_SESSIONS_RECORD_RECORDER_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "KestovaRecordings/streamcounts.h"

namespace session
{
struct tRecorderState
{
    recordings::tStreamCounts streams;                          // a row for each joined group, even without datagrams
    std::map<recordings::tStreamKey, std::uint64_t> discarded;  // by the kernel: a receive buffer was full
    std::uint32_t backlog = 0;                                  // messages in the queue
    std::uint64_t lost = 0;                                     // messages that could not be written
    // Segments that the writer has done with, and those ever queued, read in this order: the writer has nothing to do
    // where they are equal.
    std::uint64_t done = 0, queued = 0;
    std::string file;  // the present one; empty while none is open
    // Rises when the groups are joined anew, or left, because the address of the local interface has changed; the
    // address (0 while there is none), and the groups that could not be joined there.
    unsigned int addressReports = 0;
    std::uint32_t localIp = 0;
    std::size_t notJoined = 0;
    std::vector<std::string> unjoined;  // groups that are to be received and are not joined at present

    std::uint64_t allDiscarded() const;
};

// Records from construction on: the file is open and every group joined. closeSockets(), waitWritten(), closeFile() and
// the wait for compression end a recording, in this order. One thread at a time.
class iRecorder
{
public:
    virtual ~iRecorder() = default;
    virtual tRecorderState state() = 0;
    // Goes on in the next file without a loss; returns false if none is open.
    virtual bool startNextFile() = 0;
    virtual void closeSockets() = 0;
    // Waits until everything received is in the file. Returns false after the timeout.
    virtual bool waitWritten(unsigned int timeoutMs) = 0;
    virtual void closeFile() = 0;
    virtual std::uint32_t compressing() const = 0;  // finished files that are not yet compressed
    virtual void cancelCompressing() = 0;           // leaves them plain
};
}  // namespace session

#endif
