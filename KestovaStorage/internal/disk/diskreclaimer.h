// tDiskReclaimer: keeps the disks below the storage roots of this process from filling up.
//
// Shapes   roots are registered by the storage objects that use them, files by the writers that write them. Every 3 s
//          a pass examines one root, in turn; while its disk is low its oldest data files are deleted with their
//          companions, never one that is being written, by this process or another, or whose sheet says that it is
//          kept.
// Owner    one with a thread must live until the process ends: its thread does.
// Threads  the operations from any thread; a pass on the reclaimer's own. m_mutex is held while a root is picked and
//          while a candidate is compared with the files being written, never while listing or deleting.
// Calls    the observer, on the thread of the pass, for every file that is deleted.
// Errors   a file that cannot be deleted ends the pass, and is reported through perror.
#ifndef KESTOVA_STORAGE_DISK_DISKRECLAIMER_H
#define KESTOVA_STORAGE_DISK_DISKRECLAIMER_H

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include "KestovaStorage/reclaimobserver.h"
#include "common/observers.h"

namespace storage
{
class tDiskReclaimer
{
public:
    // Returns whether the disk of a root is low.
    using tIsLow = std::function<bool(const std::string& root)>;
    // Unless `enabled` is null, a thread makes the passes from the first root on, and skips them while the flag is
    // false. The flag is read atomically.
    explicit tDiskReclaimer(tIsLow isLow, bool* enabled = nullptr) : m_isLow(std::move(isLow)), m_enabled(enabled) {}

    void setObserver(iReclaimObserver* observer) { m_observer.set(observer); }

    void addRoot(const void* owner, const std::string& root);  // also restarts the rotation
    void removeRoot(const void* owner);

    // Protects a file as long as the mark lives.
    class tWritingMark
    {
    public:
        tWritingMark() = default;
        tWritingMark(tDiskReclaimer& reclaimer, const std::string& path);
        ~tWritingMark() { reset(); }
        tWritingMark(tWritingMark&& other) noexcept;
        tWritingMark& operator=(tWritingMark&& other) noexcept;
        void reset();

    private:
        tDiskReclaimer* m_reclaimer = nullptr;
        std::string m_path;
    };

    void pass();  // over the next root

private:
    void startThread();
    std::string nextRoot();
    void reclaim(const std::string& root);
    bool deleteOldest(const std::string& root);
    std::string oldestToDelete(const std::string& root);
    bool isWriting(const std::string& path);

    const tIsLow m_isLow;
    bool* const m_enabled;
    tObserverGate<iReclaimObserver> m_observer;
    std::mutex m_mutex;
    std::map<const void*, std::string> m_storagePathes;  // guarded by m_mutex
    const void* m_lastVisited = nullptr;                 // guarded by m_mutex: the rotation's place
    std::multiset<std::string> m_writingFilePathes;      // guarded by m_mutex; absolute
    bool m_threadStarted = false;                        // guarded by m_mutex
};
}  // namespace storage

#endif
