// tReclaimLog: decides whether old recordings are deleted to make room, and keeps what was deleted.
#ifndef KESTOVA_SESSIONS_RECORD_RECLAIMLOG_H
#define KESTOVA_SESSIONS_RECORD_RECLAIMLOG_H

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "KestovaStorage/reclaimobserver.h"

namespace session
{
struct tReclaimed
{
    std::string path;
    std::uint64_t bytes = 0;  // on the disk
    std::string cause;        // "reclaim", or the limit: "max-age", "max-size", "min-free"
};

// For the whole process, from construction to destruction: one at a time, before the first storage object. Any thread.
class tReclaimLog : private storage::iReclaimObserver
{
public:
    explicit tReclaimLog(bool reclaim);
    ~tReclaimLog() override;
    tReclaimLog(const tReclaimLog&) = delete;
    tReclaimLog& operator=(const tReclaimLog&) = delete;

    std::vector<tReclaimed> files() const;  // so far

private:
    void UpdateReclaimed(const std::string& path, std::uint64_t bytes) override;

    const bool m_before;  // whether the process reclaimed
    mutable std::mutex m_mutex;
    std::vector<tReclaimed> m_files;  // guarded by m_mutex
};
}  // namespace session

#endif
