// Replays a recording to the application and, where wanted, back onto the network.
#ifndef KESTOVA_RADARDATAREPLAYER_H
#define KESTOVA_RADARDATAREPLAYER_H

#include <stdint.h>
#include <string>

#include "KestovaStorage/datastorageio.h"
#include "KestovaStorage/radarmsgpackage.h"
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
    // the same file again tells nothing new.
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
    // loop sends the spokes that it keeps to the group they were recorded from all the same.
    virtual void UpdateReplayAddrModify(uint32_t* udpAddr, uint16_t* udpPort) = 0;
    // Whether the record is a spoke that circle loop `loopNumber` (0 to 255, one for each radar) is to keep, and the
    // spoke's azimuth in the radar's own units. Both come preset to -1; while either is negative nothing is kept.
    virtual bool CheckIfNeededCircleLoop(tMsgType type, tReadWriteType rwType, const char* groupAddr, int port,
                                         char* data, int len, int& loopNumber, int& azimuth) = 0;
};

class tRadarDataReplayerPrivate;

// Plays recordings of tRadarDataSaver at their pace: record by record to the observers and, in network replay mode, as
// datagrams to the groups they were recorded from, so that a display takes them for the live radar's.
//
// Of a recording are replayed the stream kinds asked for, and always: negotiation messages, radar check records, and
// the very last record of the span. User control messages (sender 2) are counted and neither reported nor sent.
// Image state messages (129 bytes, beginning 03 C4) carry the replay time at offset 114. In network replay mode the
// service messages of the recording are repeated to 236.6.7.5:6878 every 3 s until they have not been replayed anew for
// 9 s, so that displays go on believing in the service; repetitions are marked "_R" at offset 14 where they are 222
// bytes long. A recorder on the same network records them as it does every service message.
// Records that are no whole package are skipped and counted.
//
// Operations may be called from any thread; from inside a callback see storage::tDataStorageIO: Stop, Jump, Close and
// Open are carried out right after the callback has returned. A socket that the network refuses is reported on standard
// error once for each destination, and replay goes on. At most 256 destinations have a socket at a time.
class KESTOVA_API tRadarDataReplayer
{
public:
    // Replays the `count` kinds at `types`. `netReplay` sends on the interface whose address is `localIp` (dotted; the
    // system chooses where it is none). `name` is the suffix of data files, ".data". Without `netReplay` nothing leaves
    // this machine, spoke loops included.
    // It makes the folder ./RadarDataStorage where that is missing, and switches the reclaiming of disk space off for
    // the whole process: a process that records beside a replayer sets storage::tDataStorageIO::DiskCheckThreadEnable
    // again.
    tRadarDataReplayer(const eReadWriteType* types, int count, bool netReplay, const char* localIp, const char* name);
    // Closes as CloseReadingFile does, and ends every thread: no call and no datagram follows.
    virtual ~tRadarDataReplayer();
    tRadarDataReplayer(const tRadarDataReplayer&) = delete;
    tRadarDataReplayer& operator=(const tRadarDataReplayer&) = delete;

    // As in storage::tDataStorageIO. `observer` may be null, is not owned, and must live until CloseReadingFile has
    // returned or another was opened.
    bool OpenReadDataFileorFolder(const std::string& path, iRadarDataReplayObserver* observer);
    bool Pause(bool pause);
    void FastSlowForward(double rate);
    bool Stop();
    bool Jump(double fraction);
    // Also closes the sockets of all destinations and forgets the service messages to repeat.
    void CloseReadingFile();

    // Null removes the observer. After the return no call to an earlier one is under way, except where this is called
    // from inside a call. Not owned.
    void SetReplayModifyObserver(iRadarReplayModifyObserver* observer);

    // Keeps the picture alive while replay does not advance. `run` true: every loop that holds spokes sends the last
    // full revolution, and the one that was in progress, again and again to the group they were recorded from, 2 s a
    // pass, all loops starting a revolution together. `run` false: they have stopped when the call returns. A loop
    // keeps what is replayed only while it does not run, 64 MiB and 65,536 spokes at most. In network replay mode only.
    void CircleLoop(bool run);

    // What happened since construction.
    uint64_t GetSentCnt() const;         // replayed records that went out; repetitions and spoke loops not included
    uint64_t GetSendRefusedCnt() const;  // replayed records that the network refused
    uint64_t GetUnreadCnt() const;       // as in storage::tDataStorageIO
    uint64_t GetDamagedCnt() const;      // records that were no whole package

private:
    tRadarDataReplayerPrivate* d;
};
}  // namespace Kestova

#endif
