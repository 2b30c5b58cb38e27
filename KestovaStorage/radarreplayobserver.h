// What a Kestova::tRadarDataReplayer reports, and what may edit a replay on its way.
#ifndef KESTOVA_RADARREPLAYOBSERVER_H
#define KESTOVA_RADARREPLAYOBSERVER_H

#include <stdint.h>
#include <string>

#include "KestovaStorage/radarmsgpackage.h"
#include "KestovaStorage/replayobserver.h"
#include "KestovaUtils/timeparser.h"
#include "UdpSocket/kestovaapi.h"

namespace Kestova
{
// Receives a replay. Called from the replay thread and, for statuses, from the thread that called Pause, Stop, Jump or
// CloseReadingFile. No lock is held during a call: every operation of tRadarDataReplayer may be called from inside one
// (see there), except its destruction. Must not throw.
class KESTOVA_API iRadarDataReplayObserver
{
public:
    virtual ~iRadarDataReplayObserver() = default;
    virtual void UpdateReplayStatus(tReplayStatus status) = 0;            // a storage::eReplayStatus value
    virtual void UpdateDataTimeSpan(tTimes_ms begin, tTimes_ms end) = 0;  // of everything opened; 0, 0 for nothing
    // The data file that records now come from, and the counters: "PATH\r\nUser Ctrl Cnt: N\r\nMulti Service Cnt: M".
    // At every change of the file and of a counter. Both counters, and the file, live as long as the replayer: opening
    // the same file again reports nothing new.
    virtual void UpdateFileName(std::string text) = 0;
    // One record: its recorded time stamp and the one in its package, both in ms; kind of message and stream; its place
    // in the span (0.0 to 1.0); its group (dotted) and port (plain number); `len` bytes of payload, valid during the
    // call. A modify observer's changes are in all of them.
    virtual void UpdateReplayData(tTimes_ms replayTime, tTimes_ms packageTime, tMsgType type, tReadWriteType rwType,
                                  double progress, const char* groupAddr, int port, const char* data, int len) = 0;
};

// Edits a replay before the application and the network get it. Called on the replay thread, for each record the three
// operations in this order. Changes live in memory; the recording stays as it is. Must not throw.
class KESTOVA_API iRadarReplayModifyObserver
{
public:
    virtual ~iRadarReplayModifyObserver() = default;
    // May change the `len` bytes at `data`; their number stays. The other values as in
    // iRadarDataReplayObserver::UpdateReplayData.
    virtual void UpdateReplayDataModify(tTimes_ms replayTime, tTimes_ms packageTime, tMsgType type,
                                        tReadWriteType rwType, double progress, const char* groupAddr, int port,
                                        char* data, int len) = 0;
    // May send the record elsewhere: `udpAddr` as net::transAddr returns it, `udpPort` a plain number. A circle spoke
    // loop sends the spokes that it keeps to the group they were recorded from nevertheless.
    virtual void UpdateReplayAddrModify(uint32_t* udpAddr, uint16_t* udpPort) = 0;
    // Returns whether the record is a spoke that circle loop `loopNumber` is to keep, and the spoke's azimuth in the
    // radar's own units. Loops are numbered from 0 on as the application likes, one for each radar; 4,096 of them can
    // exist at once. Both come preset to -1; while either is negative nothing is kept.
    virtual bool CheckIfNeededCircleLoop(tMsgType type, tReadWriteType rwType, const char* groupAddr, int port,
                                         char* data, int len, int& loopNumber, int& azimuth) = 0;
};

// Learns what became of a replayed record that went onto the network. Called on the replay thread right after it was
// sent, or refused; GetReplayDueTime tells there when it was due. Must not throw.
class KESTOVA_API iRadarReplaySendObserver
{
public:
    virtual ~iRadarReplaySendObserver() = default;
    virtual void UpdateReplaySent(bool sent) = 0;
};

// Values of tReplaySending.
enum eReplaySending
{
    eReplaySendAsItIs = 0,
    eReplaySentOtherwise = 1,
    eReplayRefusedOtherwise = 2
};
typedef unsigned char tReplaySending;

// Sends replayed records in another form, in network replay mode. Must not throw.
class KESTOVA_API iRadarReplaySender
{
public:
    virtual ~iRadarReplaySender() = default;
    // Called on the replay thread for each record that is about to be sent, after it was reported; values as in
    // iRadarDataReplayObserver::UpdateReplayData, but `udpAddr` as net::transAddr returns it. Returns an eReplaySending
    // value: whether the replayer is to send the record, or what became of it.
    virtual tReplaySending SendReplayRecord(tTimes_ms replayTime, tMsgType type, tReadWriteType rwType,
                                            uint32_t udpAddr, uint16_t udpPort, const char* data, int len) = 0;
};
}  // namespace Kestova

#endif
