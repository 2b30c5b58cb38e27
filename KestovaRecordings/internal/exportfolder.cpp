#include "KestovaRecordings/internal/exportfolder.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/internal/newfolder.h"
#include "common/descriptor.h"

namespace recordings
{
namespace
{
[[noreturn]] void fail(const std::string& path, const char* what)
{
    throw tFailure(path + what + std::strerror(errno));
}

void sync(const std::string& path)
{
    const tDescriptor entry(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!entry.valid() || (::fsync(entry.get()) != 0 && errno != EINVAL))
        fail(path, " cannot be synced: ");
}
}  // namespace

tExportFolder::tExportFolder(const std::string& path) : m_path(path)
{
    while (m_path.size() > 1 && m_path.back() == '/')
        m_path.pop_back();
    struct stat info;
    if (::lstat(m_path.c_str(), &info) == 0)
        throw tFailure(m_path + " exists already: remove it, or choose another name");
    m_part = m_path + ".part";
    if (::mkdir(m_part.c_str(), 0777) != 0)
        fail(m_part, " cannot be made: ");
}

tExportFolder::~tExportFolder()
{
    std::error_code error;
    if (!m_committed)
        std::filesystem::remove_all(m_part, error);
}

void tExportFolder::makeFolder(const std::string& name)
{
    if (::mkdir(fileName(name).c_str(), 0777) != 0)
        fail(m_path + "/" + name, " cannot be made: ");
}

void tExportFolder::put(const std::string& name, std::string_view bytes)
{
    const tDescriptor file(::open(fileName(name).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (!file.valid() || !file.writeAllAt(bytes.data(), bytes.size(), 0))
        fail(m_path + "/" + name, " cannot be written: ");
    ::sync_file_range(file.get(), 0, 0, SYNC_FILE_RANGE_WRITE);  // so that little is left for commit()
}

void tExportFolder::commit()
{
    for (const auto& entry : std::filesystem::recursive_directory_iterator(m_part))
        sync(entry.path().string());
    sync(m_part);
    if (!renameNew(m_part, m_path))
        fail(m_path, " cannot be made: ");
    m_committed = true;
}
}  // namespace recordings
