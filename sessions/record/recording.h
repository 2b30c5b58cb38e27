// A recording in progress, whatever it records: a radar of a directory, or plain groups.
#ifndef KESTOVA_SESSIONS_RECORD_RECORDING_H
#define KESTOVA_SESSIONS_RECORD_RECORDING_H

#include <cstdint>
#include <map>
#include <string>

#include "KestovaRecordings/streamcounts.h"

namespace session
{
struct tRecordingState
{
    recordings::tStreamCounts streams;                          // a row for each joined group, silent ones too
    std::map<recordings::tStreamKey, std::uint64_t> discarded;  // by the kernel, because a receive buffer was full
    std::uint32_t backlog = 0;                                  // messages that wait to be written
    std::uint64_t lost = 0;                                     // messages that are in no file and never will be
    std::string file;                                           // being written; empty while none is open

    std::uint64_t allDiscarded() const;
};

// Records from construction on: the file is open and every group joined. Ended in the order of the operations below;
// one thread at a time.
class iRecording
{
public:
    virtual ~iRecording() = default;
    virtual tRecordingState state() = 0;
    virtual void closeSockets() = 0;
    // Returns true once everything received is in the file, false after the timeout.
    virtual bool waitWritten(unsigned int timeoutMs) = 0;
    virtual void closeFile() = 0;
    virtual std::uint32_t compressing() const = 0;  // finished files that are not yet compressed
    virtual void giveUpCompressing() = 0;           // they stay plain
};
}  // namespace session

#endif
