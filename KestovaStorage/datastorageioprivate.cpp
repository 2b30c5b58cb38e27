#include "KestovaStorage/datastorageioprivate.h"

#include "KestovaStorage/datastorageio.h"
#include "KestovaStorage/internal/disk/diskspace.h"

namespace storage
{
namespace
{
// The process's own. It is never destroyed: its thread runs until the process ends.
tDiskReclaimer& reclaimer()
{
    static tDiskReclaimer& s_instance = *new tDiskReclaimer([](const std::string& root) { return disk::isLow(root); },
                                                            &tDataStorageIO::DiskCheckThreadEnable);
    return s_instance;
}
}  // namespace

void tDataStorageIOPrivate::setReclaimObserver(iReclaimObserver* observer)
{
    reclaimer().setObserver(observer);
}

tDataStorageIOPrivate::tDataStorageIOPrivate(const std::string& storageBasePath, const char* specifySuffix)
    : m_player(specifySuffix), m_writer(storageBasePath, specifySuffix, reclaimer())
{}

tDataStorageIOPrivate::~tDataStorageIOPrivate() = default;
}  // namespace storage
