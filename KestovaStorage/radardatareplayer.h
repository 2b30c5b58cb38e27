// Replays a recording to the application and, in network replay mode, back onto the network.
#ifndef KESTOVA_RADARDATAREPLAYER_H
#define KESTOVA_RADARDATAREPLAYER_H

#include <stdint.h>
#include <string>
#include <vector>

#include "KestovaStorage/datastorageio.h"
#include "KestovaStorage/radarmsgpackage.h"
#include "KestovaStorage/radarreplayobserver.h"
#include "KestovaUtils/timeparser.h"
#include "UdpSocket/kestovaapi.h"

namespace Kestova
{
class tRadarDataReplayerPrivate;

// Plays recordings of tRadarDataSaver at their pace: record by record to the observers and, in network replay mode, as
// datagrams to the groups they were recorded from, so that a display takes them for the live radar's.
//
// A replay contains the stream kinds asked for and, always, negotiation messages, radar check records, and the very
// last record of the span. User control messages (sender 2) are counted and neither reported nor sent. Image state
// messages (129 bytes, beginning 03 C4) carry the replay time at offset 114. In network replay mode the service
// messages of the recording are repeated to 236.6.7.5:6878 every 3 s, each for 9 s from its first replay and again from
// its next one on, so that displays keep the service alive; repetitions are marked "_R" at offset 14 if they are 222
// bytes long. A recorder on the same network records them as it does every service message. Records that do not hold
// their whole message are skipped and counted.
//
// Operations may be called from any thread; from inside a callback see storage::tDataStorageIO: Stop, Jump, Close and
// Open are carried out right after the callback has returned. A socket that the network refuses is reported on standard
// error once for each destination, and replay continues. At most 256 destinations have a socket at a time.
class KESTOVA_API tRadarDataReplayer
{
public:
    // Replays the `count` kinds at `types`. `netReplay` sends on the interface whose address is `localIp` (dotted; the
    // system chooses if it is none). `name` is the suffix of data files, ".data". Without `netReplay` nothing leaves
    // this machine, spoke loops included.
    // Creates the folder ./RadarDataStorage if that is missing, and switches the reclaiming of disk space off for
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
    bool OpenReadPaths(const std::vector<std::string>& paths, iRadarDataReplayObserver* observer);
    bool Pause(bool pause);
    void FastSlowForward(double rate);
    bool SetSpeed(double speed);
    void SetReplayEnd(uint64_t timeMs);
    void SetTopSpeed(bool on);
    void SetReplaySource(storage::iReplaySource* source);
    bool Stop();
    bool Jump(double fraction);
    // Also closes the sockets of all destinations and drops the service messages to repeat.
    void CloseReadingFile();

    // Null removes the observer. Waits until no call to an earlier one is under way, so hold no lock that it takes;
    // called from inside a call it does not wait. Not owned.
    void SetReplayModifyObserver(iRadarReplayModifyObserver* observer);

    // The same for what is notified of every record that goes onto the network.
    void SetReplaySendObserver(iRadarReplaySendObserver* observer);

    // The same for what sends records in another form. Service messages are repeated as they were recorded.
    void SetReplaySender(iRadarReplaySender* sender);

    // Keeps the picture alive while replay does not advance. `run` true: every loop that holds spokes sends the last
    // full revolution, and the one that was in progress, again and again to the group they were recorded from, 2 s a
    // pass, all loops starting a revolution together. `run` false: they have stopped when the call returns. A loop
    // keeps what is replayed only while it does not run, 64 MiB and 65,536 spokes at most. In network replay mode only.
    void CircleLoop(bool run);

    // What happened since construction.
    uint64_t GetSentCnt() const;         // replayed records that were sent; repetitions and spoke loops not included
    uint64_t GetSendRefusedCnt() const;  // replayed records whose sending failed
    uint64_t GetUnreadCnt() const;       // as in storage::tDataStorageIO
    uint64_t GetDamagedCnt() const;      // records that did not hold their whole message

    // Inside UpdateReplayData, of the record being reported; as in storage::tDataStorageIO.
    int GetReplayFineTime() const;
    int64_t GetReplayDueTime() const;

private:
    tRadarDataReplayerPrivate* d;
};
}  // namespace Kestova

#endif
