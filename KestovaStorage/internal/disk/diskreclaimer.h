// tDiskReclaimer: keeps the disks below the storage roots of this process from filling up.
//
// Shapes   roots are registered by the storage objects that use them, files by the writers that write them. Every 3 s
//          one root is looked at, in turn; below 1 GiB of free space its oldest data files are deleted, never one that
//          is being written, until there is room again.
// Owner    one for the process, made by the first root and never destroyed: its thread may outlive everything else.
// Threads  the operations from any thread; a pass on the reclaimer's own. m_mutex is held while a root is picked and
//          while a candidate is compared with the files being written, never while listing or deleting.
// Errors   a file that cannot be deleted ends the pass.
#ifndef KESTOVA_STORAGE_DISK_DISKRECLAIMER_H
#define KESTOVA_STORAGE_DISK_DISKRECLAIMER_H

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>

namespace storage
{
class tDiskReclaimer
{
public:
    // What a pass asks about a root's disk: whether it is low.
    using tIsLow = std::function<bool(const std::string& root)>;
    explicit tDiskReclaimer(tIsLow isLow) : m_isLow(std::move(isLow)) {}

    // The process's own, with the real measurement and its thread.
    static tDiskReclaimer& instance();

    void addRoot(const void* owner, const std::string& root);  // also starts the rotation anew
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

    void pass();  // looks at the next root

private:
    void startThread();
    std::string nextRoot();
    void reclaim(const std::string& root);
    bool deleteOldest(const std::string& root);
    bool isWriting(const std::string& path);

    const tIsLow m_isLow;
    std::mutex m_mutex;
    std::map<const void*, std::string> m_storagePathes;  // guarded by m_mutex
    const void* m_lastVisited = nullptr;                 // guarded by m_mutex: the rotation's place
    std::multiset<std::string> m_writingFilePathes;      // guarded by m_mutex; absolute
    bool m_diskCheckThreadRun = false;                   // guarded by m_mutex
};
}  // namespace storage

#endif
