// tRing: keeps what is recorded below a storage root within limits while it is recorded, on a thread of its own.
//
// Shapes   deletes whole recordings, and of the one under way files that are finished: the oldest first. A pass takes a
//          fiftieth of the time at most, however many recordings there are.
// Threads  begins with construction; setFile() and take() from one thread.
// Errors   what cannot be deleted stays, and is tried again.
#ifndef KESTOVA_SESSIONS_RECORD_RING_H
#define KESTOVA_SESSIONS_RECORD_RING_H

#include <string>
#include <vector>

#include "KestovaRecordings/prune.h"
#include "common/worker.h"

namespace session
{
class tRing
{
public:
    // Does nothing without limits.
    tRing(std::string root, const recordings::tPruneLimits& limits);

    void setFile(const std::string& inHand);  // the file that is recorded, from the first on
    std::vector<recordings::tPruned> take();  // returns what was deleted since the last call

private:
    void run();
    void pass();

    const std::string m_root;
    const recordings::tPruneLimits m_limits;
    std::string m_inHand;                        // guarded by m_worker's lock
    std::vector<recordings::tPruned> m_deleted;  // guarded by m_worker's lock
    tWorker m_worker;
};
}  // namespace session

#endif
