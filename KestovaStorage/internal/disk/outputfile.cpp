#include "KestovaStorage/internal/disk/outputfile.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace storage
{
namespace
{
constexpr char cEnding[] = ".part";
}

tOutputFile::tOutputFile(const std::string& name)
    : m_path(name + cEnding), m_file(::open(m_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666)),
      m_wasOpened(m_file.valid())
{
    if (isOpen() && claim())
        return;
    fail();
    m_file.reset();
}

// Locks the file as long as the descriptor lives. Its former owner may have renamed it just before the lock was taken.
bool tOutputFile::claim()
{
    struct stat opened, named;
    if (::flock(m_file.get(), LOCK_EX | LOCK_NB) != 0 || ::fstat(m_file.get(), &opened) != 0 ||
        ::stat(m_path.c_str(), &named) != 0)
    {
        errno = errno == EWOULDBLOCK ? EBUSY : errno;
        return false;
    }
    if (opened.st_ino != named.st_ino || opened.st_dev != named.st_dev)
    {
        errno = EBUSY;
        return false;
    }
    return ::ftruncate(m_file.get(), 0) == 0;
}

tOutputFile::~tOutputFile()
{
    if (isOpen() && !m_committed)
        ::unlink(m_path.c_str());
}

bool tOutputFile::writeAt(const void* data, std::size_t len, std::uint64_t pos)
{
    if (!m_file.writeAllAt(data, len, pos))
        return fail();
    // Starts writing to the disk early, so that little is left for the sync. Only a hint.
    ::sync_file_range(m_file.get(), static_cast<off_t>(pos), static_cast<off_t>(len), SYNC_FILE_RANGE_WRITE);
    return true;
}

bool tOutputFile::sync()
{
    return ::fsync(m_file.get()) == 0 || fail();
}

bool tOutputFile::likeFile(const std::string& path)
{
    struct stat info;
    if (::stat(path.c_str(), &info) != 0)
        return fail();
    const timespec times[2] = {info.st_atim, info.st_mtim};
    // Only root may change the owner; for others the call fails with EPERM, which is ignored.
    if (::fchown(m_file.get(), info.st_uid, info.st_gid) != 0 && errno != EPERM)
        return fail();
    return (::fchmod(m_file.get(), info.st_mode & 07777) == 0 && ::futimens(m_file.get(), times) == 0) || fail();
}

bool tOutputFile::commit(const std::string& name)
{
    if (!sync() || std::rename(m_path.c_str(), name.c_str()) != 0)
        return fail();
    m_committed = true;
    syncFolderOf(name);
    return true;
}

bool tOutputFile::fail()
{
    if (m_status.ok())
        m_status = tStatus::system(errno != 0 ? errno : EIO);
    return false;
}

void syncFolderOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const tDescriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (opened.valid())
        ::fsync(opened.get());
}
}  // namespace storage
