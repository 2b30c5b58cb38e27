#include "KestovaStorage/datastorageio.h"

#include "KestovaStorage/datastorageioprivate.h"
#include "KestovaStorage/internal/disk/diskspace.h"
#include "KestovaStorage/internal/disk/paths.h"

namespace storage
{
bool tDataStorageIO::DiskCheckThreadEnable = true;

void tDataStorageIO::SetReclaimObserver(iReclaimObserver* observer)
{
    tDataStorageIOPrivate::setReclaimObserver(observer);
}

tDataStorageIO::tDataStorageIO(const std::string& storageBasePath, const char* specifySuffix)
    : d(new tDataStorageIOPrivate(storageBasePath, specifySuffix))
{}

tDataStorageIO::~tDataStorageIO()
{
    delete d;
}

bool tDataStorageIO::CreateNewWritingFile(unsigned long timestamp, const std::string& extFileName, bool compress)
{
    return d->m_writer.createNewWritingFile(extFileName, timestamp, std::string(), compress);
}

bool tDataStorageIO::CreateNewWritingFile(const std::string& customFolderPath, const std::string& extFileName,
                                          bool compress)
{
    return d->m_writer.createNewWritingFile(extFileName, 0, customFolderPath, compress);
}

void tDataStorageIO::WriteData(const char* data, unsigned long len, unsigned long timestamp)
{
    d->m_writer.writeData(data, len, {timestamp});
}

void tDataStorageIO::WriteDataFine(const char* data, unsigned long len, uint64_t time_us)
{
    d->m_writer.writeData(data, len, tSegmentTime::fine(time_us));
}

void tDataStorageIO::SetFineTimes(bool on)
{
    d->m_writer.setFineTimes(on);
}

void tDataStorageIO::SetWriteObserver(iWriteObserver* observer)
{
    d->m_writer.setObserver(observer);
}

bool tDataStorageIO::IsWriteEnable() const
{
    return d->m_writer.isWriteEnable();
}

void tDataStorageIO::FinishWrite()
{
    d->m_writer.finishWrite();
}

bool tDataStorageIO::WaitWriteIdle(unsigned int timeout_ms)
{
    return d->m_writer.waitWriteIdle(timeout_ms);
}

std::string tDataStorageIO::GetCurrentWriteDataFileName() const
{
    return d->m_writer.currentFileName();
}

uint32_t tDataStorageIO::GetWriteDataFifoSize() const
{
    return d->m_writer.fifoSize();
}

uint32_t tDataStorageIO::GetSaveCnt() const
{
    return d->m_writer.saveCnt();
}

uint64_t tDataStorageIO::GetWriteLostCnt() const
{
    return d->m_writer.lostCnt();
}

bool tDataStorageIO::StartNextFile()
{
    return d->m_writer.startNextFile();
}

uint64_t tDataStorageIO::GetWriteQueuedCnt() const
{
    return d->m_writer.queuedCnt();
}

uint64_t tDataStorageIO::GetWriteDoneCnt() const
{
    return d->m_writer.doneCnt();
}

uint32_t tDataStorageIO::GetCompressingCnt() const
{
    return d->m_writer.compressions().pending();
}

void tDataStorageIO::CancelCompressing()
{
    d->m_writer.compressions().cancel();
}

bool tDataStorageIO::OpenReadDataFileorFolder(const std::string& path, iDataReadReplayObserver* observer)
{
    // An empty owner: the observer is not deleted.
    return d->m_player.open({path}, {std::shared_ptr<void>(), observer});
}

bool tDataStorageIO::OpenReadPaths(const std::vector<std::string>& paths, iDataReadReplayObserver* observer)
{
    return !paths.empty() && d->m_player.open(paths, {std::shared_ptr<void>(), observer});
}

bool tDataStorageIO::OpenReadingFor(const std::vector<std::string>& paths,
                                    const std::shared_ptr<iDataReadReplayObserver>& observer)
{
    return !paths.empty() && d->m_player.open(paths, observer);
}

bool tDataStorageIO::Pause(bool pause)
{
    return d->m_player.pause(pause);
}

void tDataStorageIO::FastSlowForward(double rate)
{
    d->m_player.setSpeed(speedFor(rate));
}

bool tDataStorageIO::SetSpeed(double speed)
{
    const auto exact = exactSpeedFor(speed);
    if (exact)
        d->m_player.setSpeed(*exact);
    return exact.has_value();
}

void tDataStorageIO::SetReplayEnd(uint64_t timeMs)
{
    d->m_player.setEnd(timeMs);
}

void tDataStorageIO::SetTopSpeed(bool on)
{
    d->m_player.setTopSpeed(on);
}

void tDataStorageIO::SetReplaySource(iReplaySource* source)
{
    d->m_player.setSource(source);
}

bool tDataStorageIO::Stop()
{
    return d->m_player.stop();
}

bool tDataStorageIO::Jump(double fraction)
{
    return d->m_player.jump(fraction);
}

void tDataStorageIO::CloseReadingFile()
{
    d->m_player.close();
}

int tDataStorageIO::GetReplayFineTime() const
{
    return d->m_player.fineTime();
}

int64_t tDataStorageIO::GetReplayDueTime() const
{
    return d->m_player.dueTime_ns();
}

uint64_t tDataStorageIO::GetUnreadCnt() const
{
    return d->m_player.unreadCnt();
}

bool tDataStorageIO::IsExistPath(const std::string& path)
{
    return paths::exists(path);
}

tPathProperty tDataStorageIO::IsFileOrFolder(const std::string& path)
{
    switch (paths::kindOf(path))
    {
    case paths::ePathKind::eFile:
        return eFile;
    case paths::ePathKind::eFolder:
        return eFolder;
    case paths::ePathKind::eNone:
        break;
    }
    return eNoExist;
}

void tDataStorageIO::NormalizePath(std::string& path)
{
    paths::normalize(path);
}

bool tDataStorageIO::MakePath(const std::string& path)
{
    return paths::makeFolders(path);
}

int64_t tDataStorageIO::GetFileSize(const char* file)
{
    return paths::fileSize(file);
}

int32_t tDataStorageIO::GetDiskFreeSize_MB(const char* path)
{
    return disk::freeSize_MB(path);
}

int64_t tDataStorageIO::GetMountDiskSize(const std::string& mountPoint)
{
    return disk::mountSize(mountPoint);
}

void tDataStorageIO::Relative2AbsolutePath(std::string& path)
{
    paths::makeAbsolute(path);
}

void tDataStorageIO::GetFileFolderInDir(const std::string& dir, std::set<std::string>& out, bool recursive,
                                        const std::string& suffix)
{
    paths::listFolder(dir, out, recursive, suffix);
}
}  // namespace storage
