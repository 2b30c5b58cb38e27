// Records the UDP multicast traffic of one radar.
#ifndef KESTOVA_RADARDATASAVER_H
#define KESTOVA_RADARDATASAVER_H

#include <stdint.h>
#include <string>

#include "KestovaStorage/radarmsgpackage.h"
#include "UdpSocket/kestovaapi.h"

namespace storage
{
class iWriteObserver;
}

namespace Kestova
{
// Sees, and may edit, every datagram before it is recorded. An exception that leaves it ends the process.
class KESTOVA_API iRadarRecDataModifyObserver
{
public:
    virtual ~iRadarRecDataModifyObserver() = default;
    // One datagram of a joined group: `groupAddr` dotted, `port` a plain number, `len` writable bytes at `data`, valid
    // during the call. Their number and `info` stay as they are. Called on the receive thread of the group (several
    // groups at once) or on the thread of ManualWriteRadarData. No lock is held: every operation of the saver may be
    // called from inside, but see tRadarDataSaver for connect, disconnect and SocketClear. A long call delays the
    // group, and the thread that ends the connection.
    virtual void UpdateRecDataModify(const tUdpMsgInfo& info, const char* groupAddr, int port, char* data, int len) = 0;
};

// What one joined group has received since it was joined (anew at every change of the local address).
struct tGroupCounters
{
    uint32_t ip;          // as net::transAddr returns it
    uint16_t port;        // plain number
    tUdpMsgInfo msgInfo;  // stamped on its packages
    bool joined;          // false: the group could not be joined
    uint64_t datagrams;
    uint64_t bytes;          // of the payloads
    uint64_t kernelDropped;  // lost because the socket's receive buffer was full
};

class tRadarDataSaverPrivate;

// Joins the groups of the wanted streams, and the three groups 236.6.7.20:6720, 236.6.7.4:6768 and 236.6.7.5:6878 of
// radar check and multi-radar service, and records every datagram as one tRadarMsgPackage, stamped with the time of its
// arrival. While the sockets are open and the service has been silent for 6 s, it is sent a query every 5 s: two bytes,
// 01 B1, to 236.6.7.5:6878. What arrives there is recorded and defers the next query, the queries
// themselves and a replay's service messages too.
//
// Operations may be called from any thread; connect, disconnect and SocketClear take turns. They and destruction wait
// for the receive threads: do not call them while you hold a lock that your observer takes. From inside
// UpdateRecDataModify of the same saver they are refused (they do nothing, and return false); never destroy a saver
// there. Progress is reported on standard output ("Save ...", "Radar Data Saver Init ..."), failures on standard error.
class KESTOVA_API tRadarDataSaver
{
public:
    // Records the `count` stream kinds at `types` below the storage root `basePath`, in files ending in `name`
    // (".data"); see storage::tDataStorageIO for both. Kinds above 17 have no address and are skipped. `extra` is not
    // used.
    tRadarDataSaver(const eReadWriteType* types, int count, const std::string& basePath, const char* name,
                    const std::string& extra);
    // Ends the connection as disconnect does. No call to the observer is under way afterwards and no datagram is sent.
    virtual ~tRadarDataSaver();
    tRadarDataSaver(const tRadarDataSaver&) = delete;
    tRadarDataSaver& operator=(const tRadarDataSaver&) = delete;

    // Starts recording radar `serial`, number `id` of the MultiRadarClient's directory, compressed when finished if
    // `flag`. Sockets open when the client reports the local address, and again whenever it changes; while there is
    // none they are closed. A connection before it is ended first, as disconnect does. Returns false, with a line on
    // standard output, if the radar is not in the directory. Returns true even if the file could not be created: that
    // is reported on standard error, and what arrives is counted by GetWriteLostCnt.
    // The recording is named after the radar: serial A1:2 with id 1 gives A1_2_B. The first ":" becomes "_" unless the
    // serial begins with it; ids 0 to 25 are the letters A to Z, higher ones stand as their number (A1_2_26). What
    // cannot be in a file name ("/", "\", control characters) is written as "%" and two hexadecimal digits ("%2F").
    bool connect(const char* serial, unsigned short id, bool flag);
    // Ends recording in every state of the connection: closes the sockets, waits (5 seconds at most) until what was
    // received is in the file, and finishes the file. Returns false if it was not connected or no sockets were open
    // (the local address not yet reported, or SocketClear).
    bool disconnect();
    void SocketClear();  // closes the sockets until the next change of the address; the file stays open
    bool isConnected();  // whether connect was called, and not disconnect since; also after a connect that failed

    // With `shared`, groups joined from then on are received on one thread, for a fraction of the processor time that a
    // thread a group takes. It calls the observer for one group after another, so that a long call delays all of them.
    // Datagrams gather for up to 10 ms before they are reported; they are recorded in the order of their arrival, with
    // the time at which the kernel received them. Without it, as by default, each group has a thread.
    void SetSharedReception(bool shared);

    // Null removes the observer. Waits until no call to an earlier one is under way, so hold no lock that it takes;
    // called from inside a call it does not wait. Not owned.
    void SetRecDataModifyObserver(iRadarRecDataModifyObserver* observer);

    // Handles a datagram as if it had arrived on that group: recorded if the group is one of those joined.
    void ManualWriteRadarData(const char* groupAddr, int port, const char* data, int len);
    // Records `len` bytes with an info block of zeros, the address (dotted, or null) and port given, and `timestamp` in
    // ms (0: now). Dropped while no file is open.
    void ManualWriteData(const char* addr, int port, const char* data, int len, unsigned long timestamp);

    // As in storage::tDataStorageIO. FinishWrite here does not wait for what is queued; disconnect does.
    bool CreateNewWritingFile(std::string extFileName, bool compress, unsigned long timestamp);
    void FinishWrite();
    // Waits until everything received before the call is in the file; returns false after `timeout_ms`.
    bool WaitWriteIdle(unsigned int timeout_ms);
    std::string GetCurrentWriteDataFileName();
    uint32_t GetWriteDataFifoSize();
    uint64_t GetWriteLostCnt() const;
    bool StartNextFile();
    uint64_t GetWriteQueuedCnt() const;
    uint64_t GetWriteDoneCnt() const;
    uint32_t GetCompressingCnt() const;
    void CancelCompressing();
    void SetFineTimes(bool on);  // with SetSharedReception the times at which the kernel received the datagrams
    void SetWriteObserver(storage::iWriteObserver* observer);

    // Copies the counters of up to `count` joined groups to `counters`, streams in the order of the constructor's
    // types, then the fixed groups, and returns how many groups there are (0 while sockets open or close). `counters`
    // may be null.
    int GetGroupCounters(tGroupCounters* counters, int count) const;

private:
    tRadarDataSaverPrivate* d;
};
}  // namespace Kestova

#endif
