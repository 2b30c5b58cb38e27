// What a replay of storage::tDataStorageIO reports, and the observer of it.
#ifndef KESTOVA_REPLAYOBSERVER_H
#define KESTOVA_REPLAYOBSERVER_H

#include <stdint.h>
#include <string>

#include "UdpSocket/kestovaapi.h"

typedef unsigned char tReplayStatus;

namespace storage
{
// Values of tReplayStatus.
enum eReplayStatus : uint8_t
{
    eReplayOpening = 0,  // the indexes are being read
    eReplayPlaying = 1,
    eReplayPaused = 2,
    eReplayStopped = 3,
    eReplayEnded = 4,  // at the last segment, or stopped
    eReplayClosed = 5  // internal, never reported
};

// Receives a replay. Calls come from the replay thread and, for statuses, from the thread that called Pause, Stop, Jump
// or CloseReadingFile. No lock is held during a call: every operation of tDataStorageIO may be called from inside one
// (see tDataStorageIO for what Stop, Jump, CloseReadingFile and OpenReadDataFileorFolder do there). Must not throw.
class KESTOVA_API iDataReadReplayObserver
{
public:
    virtual ~iDataReadReplayObserver() = default;
    virtual void UpdateReplayStatus(uint8_t status) = 0;  // an eReplayStatus value
    // The span of everything opened, in ms since the epoch; 0, 0 if nothing could be opened.
    virtual void UpdateDataTimeSpan(uint64_t firstTimeMs, uint64_t lastTimeMs) = 0;
    // One segment: its recorded time stamp in ms, its place in the span (0.0 to 1.0; the last one is at exactly 1.0),
    // its bytes (valid during the call only), their number, and the full path of its file.
    virtual void UpdateReplayData(uint64_t timeMs, double progress, const char* data, unsigned int len,
                                  std::string fileName) = 0;
};
}  // namespace storage

#endif
