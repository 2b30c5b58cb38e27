// Records the UDP multicast traffic of one radar.
#ifndef KESTOVA_RADARDATASAVER_H
#define KESTOVA_RADARDATASAVER_H

#include <stdint.h>
#include <string>

#include "KestovaStorage/radarmsgpackage.h"
#include "UdpSocket/kestovaapi.h"

namespace Kestova
{
// Sees, and may edit, every datagram before it is recorded.
class KESTOVA_API iRadarRecDataModifyObserver
{
public:
    virtual ~iRadarRecDataModifyObserver() = default;
    // One datagram of a joined group: `groupAddr` dotted, `port` a plain number, `len` writable bytes at `data`, valid
    // during the call. Their number and `info` stay as they are. Called on the receive thread of the group (several
    // groups at once) or on the thread of ManualWriteRadarData.
    virtual void UpdateRecDataModify(const tUdpMsgInfo& info, const char* groupAddr, int port, char* data, int len) = 0;
};

// What one joined group has received since it was joined.
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

// Operations may be called from any thread. connect, disconnect, SocketClear and destruction wait for the receive
// threads: they must not be called from inside UpdateRecDataModify (there they do nothing and return false).
class KESTOVA_API tRadarDataSaver
{
public:
    // Records the `count` stream kinds at `types` below the storage root `basePath`, in files ending in `name`
    // (".data"); see storage::tDataStorageIO for both. Kinds above 17 have no address and are skipped. `extra` is not
    // used.
    tRadarDataSaver(const eReadWriteType* types, int count, const std::string& basePath, const char* name,
                    const std::string& extra);
    virtual ~tRadarDataSaver();
    tRadarDataSaver(const tRadarDataSaver&) = delete;
    tRadarDataSaver& operator=(const tRadarDataSaver&) = delete;

    // Starts recording radar `serial`, number `id` of the MultiRadarClient's directory, into a file named after it
    // (serial A1:2 with id 1 gives A1_2_B), compressed when finished if `flag`. Sockets open when the client reports
    // the local address, and again whenever it changes. A connection before it is ended first. False, with a line on
    // standard output, if the radar is not in the directory. True even where the file could not be created: that is
    // said on standard error.
    bool connect(const char* serial, unsigned short id, bool flag);
    // Ends recording: closes the sockets, waits (a few seconds at most) until what was received is written, finishes
    // the file. False if it was not connected or had not opened its sockets yet.
    bool disconnect();
    void SocketClear();        // closes the sockets; the file stays open
    bool isConnected() const;  // connect was called, and not disconnect since; also after a connect that failed

    // Null removes the observer. After the return no call to the one before is under way, except where it is called
    // from inside that call. Not owned.
    void SetRecDataModifyObserver(iRadarRecDataModifyObserver* observer);

    // Handles a datagram as if it had arrived on that group: recorded if the group is one of those joined.
    void ManualWriteRadarData(const char* groupAddr, int port, const char* data, int len);
    // Records `len` bytes with an info block of zeros, the address and port given, and `timestamp` in ms (0: now).
    // Dropped while no file is open.
    void ManualWriteData(const char* addr, int port, const char* data, int len, unsigned long timestamp);

    // As in storage::tDataStorageIO. FinishWrite here does not wait for what is queued; disconnect does.
    bool CreateNewWritingFile(std::string extFileName, bool compress, unsigned long timestamp);
    void FinishWrite();
    // Waits until everything received before the call is in the file; false after `timeout_ms`.
    bool WaitWriteIdle(unsigned int timeout_ms);
    std::string GetCurrentWriteDataFileName() const;
    uint32_t GetWriteDataFifoSize() const;
    uint64_t GetWriteLostCnt() const;

    // Copies the counters of up to `count` joined groups to `counters` and returns how many groups there are.
    int GetGroupCounters(tGroupCounters* counters, int count) const;

private:
    tRadarDataSaverPrivate* d;
};
}  // namespace Kestova

#endif
