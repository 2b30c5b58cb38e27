#include "sessions/record/reclaimlog.h"

#include <atomic>

#include "KestovaStorage/datastorageio.h"

namespace session
{
using storage::tDataStorageIO;

tReclaimLog::tReclaimLog(bool reclaim)
    : m_before(std::atomic_ref<bool>(tDataStorageIO::DiskCheckThreadEnable).exchange(reclaim))
{
    tDataStorageIO::SetReclaimObserver(this);
}

tReclaimLog::~tReclaimLog()
{
    std::atomic_ref<bool>(tDataStorageIO::DiskCheckThreadEnable).store(m_before);
    tDataStorageIO::SetReclaimObserver(nullptr);
}

std::vector<tReclaimed> tReclaimLog::files() const
{
    const std::lock_guard lock(m_mutex);
    return m_files;
}

void tReclaimLog::UpdateReclaimed(const std::string& path, std::uint64_t bytes)
{
    const std::lock_guard lock(m_mutex);
    m_files.push_back({path, bytes, "reclaim"});
}
}  // namespace session
