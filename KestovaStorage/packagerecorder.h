// Records messages as radar message packages: from a datagram straight to a data file.
#ifndef KESTOVA_PACKAGERECORDER_H
#define KESTOVA_PACKAGERECORDER_H

#include <stdint.h>

#include "KestovaStorage/radarmsgpackage.h"
#include "UdpSocket/kestovaapi.h"
#include "UdpSocket/netaddress.h"

namespace storage
{
class tDataStorageIO;
}

namespace Kestova
{
class tPackageRecorderPrivate;

// Frames each message as one tRadarMsgPackage in the queue of a storage object, so that the bytes are copied once. The
// storage object starts and finishes files and counts; Record keeps the promises of storage::tDataStorageIO::WriteData.
// Several recorders may share a storage object; each numbers its own packages.
//
// Owner    the storage object is not owned and outlives the recorder.
// Threads  Record and GetRecordedCnt may be called from any thread.
// Errors   a package that reaches no file is counted by storage::tDataStorageIO::GetWriteLostCnt.
class KESTOVA_API tPackageRecorder
{
public:
    explicit tPackageRecorder(storage::tDataStorageIO& storage);
    ~tPackageRecorder();
    tPackageRecorder(const tPackageRecorder&) = delete;
    tPackageRecorder& operator=(const tPackageRecorder&) = delete;

    // Queues a package of `len` bytes of `data`; never waits for the disk. `group` is the message's group, all zero for
    // none; `timestamp` in ms since the epoch, 0 for now. A `len` below 0, or null data, is taken as no bytes. msgLen
    // keeps the low 16 bits of `len`: payloads above 65,535 bytes are stored whole but not read back.
    // The package's number is its place in the order of all Record calls, from 0, those without a file included.
    void Record(const tUdpMsgInfo& info, const NetAddress& group, const char* data, int len, unsigned long timestamp);

    // The same with a time in microseconds since the epoch, 0 for now: the package and the index have its milliseconds,
    // the rest is kept if the file has fine times (storage::tDataStorageIO::SetFineTimes).
    void RecordFine(const tUdpMsgInfo& info, const NetAddress& group, const char* data, int len, uint64_t time_us);

    uint32_t GetRecordedCnt() const;  // packages numbered so far

private:
    tPackageRecorderPrivate* d;
};
}  // namespace Kestova

#endif
