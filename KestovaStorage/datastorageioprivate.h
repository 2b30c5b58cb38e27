// The implementation behind storage::tDataStorageIO: a recording half and a replaying half, independent of each other.
#ifndef KESTOVA_DATASTORAGEIOPRIVATE_H
#define KESTOVA_DATASTORAGEIOPRIVATE_H

#include <string>

#include "KestovaStorage/internal/playback/playcontrol.h"
#include "KestovaStorage/internal/recording/filerecorder.h"

namespace storage
{
class tDataStorageIOPrivate
{
public:
    tDataStorageIOPrivate(const std::string& storageBasePath, const char* specifySuffix);
    virtual ~tDataStorageIOPrivate();

    static void setReclaimObserver(iReclaimObserver* observer);

    tPlayControl m_player;
    tFileRecorder m_writer;  // ends first
};
}  // namespace storage

#endif
