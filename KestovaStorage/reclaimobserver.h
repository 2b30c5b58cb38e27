// iReclaimObserver: receives the files that the reclaiming of disk space deletes.
#ifndef KESTOVA_RECLAIMOBSERVER_H
#define KESTOVA_RECLAIMOBSERVER_H

#include <stdint.h>
#include <string>

#include "UdpSocket/kestovaapi.h"

namespace storage
{
class KESTOVA_API iReclaimObserver
{
public:
    virtual ~iReclaimObserver() = default;
    // A data file has been deleted to make room: its full path, and the bytes that it took on the disk. Called on the
    // disk-space thread of the process, which deletes nothing until it returns. Must not throw.
    virtual void UpdateReclaimed(const std::string& path, uint64_t bytes) = 0;
};
}  // namespace storage

#endif
