#include "KestovaRecordings/internal/newfolder.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <random>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "KestovaRecordings/failure.h"
#include "KestovaStorage/partfolder.h"

namespace recordings
{
namespace
{
constexpr int cAttempts = 16;
constexpr std::size_t cMarked = 1 + sizeof storage::cPartFolderMark - 1 + storage::cPartFolderTail;
constexpr std::size_t cNameLimit = 255;  // of a file system, in bytes

[[noreturn]] void fail(const std::string& path, const char* what)
{
    throw tFailure(path + what + std::strerror(errno));
}

bool exists(const std::string& path)
{
    struct stat info;
    return ::lstat(path.c_str(), &info) == 0;
}

std::string randomTail()
{
    constexpr std::string_view cLetters = "abcdefghijklmnopqrstuvwxyz0123456789";
    std::random_device random;
    std::string tail;
    while (tail.size() < storage::cPartFolderTail)
        tail += cLetters[random() % cLetters.size()];
    return tail;
}

tDescriptor openFolder(const std::string& path)
{
    return tDescriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

// The names in a folder; none if it cannot be read.
std::vector<std::string> entriesOf(const std::string& path)
{
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir(path.c_str()), ::closedir);
    std::vector<std::string> names;
    while (const dirent* const entry = folder ? ::readdir(folder.get()) : nullptr)
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
            names.emplace_back(entry->d_name);
    return names;
}

// Whether it is one of the files that a recording in the making consists of, or the beginning of one.
bool isPartOfRecording(const std::string& name)
{
    constexpr std::array<const char*, 4> cEndings{".data", ".json", ".fine", ".part"};
    for (const char* const ending : cEndings)
        if (name.find(ending) != std::string::npos)
            return true;
    return false;
}

std::string pathIn(std::string folder, const std::string& name)
{
    return folder.append("/").append(name);
}

// Removes a folder with its files. A folder that holds anything else stays, with all that is in it.
void removeFolder(const std::string& path)
{
    const std::vector<std::string> names = entriesOf(path);
    for (const std::string& name : names)
    {
        struct stat info;
        if (!isPartOfRecording(name) || ::lstat(pathIn(path, name).c_str(), &info) != 0 || !S_ISREG(info.st_mode))
            return;
    }
    for (const std::string& name : names)
        ::unlink(pathIn(path, name).c_str());
    ::rmdir(path.c_str());
}

// Removes what processes have left that were killed: their locks are gone.
void removeAbandoned(const std::string& parent)
{
    for (const std::string& name : entriesOf(parent))
    {
        if (!storage::isPartFolder(name))
            continue;
        const std::string path = pathIn(parent, name);
        const tDescriptor folder = openFolder(path);
        if (folder.valid() && ::flock(folder.get(), LOCK_EX | LOCK_NB) == 0)
            removeFolder(path);
    }
}
}  // namespace

bool renameNew(const std::string& from, const std::string& to)
{
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
        return true;
    if (errno != EINVAL && errno != ENOSYS)
        return false;
    if (exists(to))  // a file system without that flag
    {
        errno = EEXIST;
        return false;
    }
    return std::rename(from.c_str(), to.c_str()) == 0;
}

tNewFolder::tNewFolder(const std::string& path) : m_path(path)
{
    while (m_path.size() > 1 && m_path.back() == '/')
        m_path.pop_back();
    const std::size_t slash = m_path.rfind('/');
    m_parent = slash == std::string::npos ? "." : m_path.substr(0, slash == 0 ? 1 : slash);
    m_name = m_path.substr(slash + 1);
    if (m_name.empty() || exists(m_path))
        throw tFailure((path.empty() ? "''" : path) + " exists already: choose a new folder");
    if (!openFolder(m_parent + "/.").valid())
        fail(m_parent, " is no folder that can be written to: ");
    removeAbandoned(m_parent);
    create();
}

tNewFolder::~tNewFolder()
{
    if (!m_committed)
        removeFolder(m_part);
}

void tNewFolder::create()
{
    const std::string stem = m_parent + "/." + m_name.substr(0, cNameLimit - cMarked) + storage::cPartFolderMark;
    for (int i = 0; i < cAttempts; ++i)
    {
        m_part = stem + randomTail();
        if (::mkdir(m_part.c_str(), 0777) == 0)
        {
            if (claim())
                return;
            ::rmdir(m_part.c_str());
        }
        else if (errno != EEXIST)
            fail(m_path, " cannot be made: ");
    }
    throw tFailure(m_path + " cannot be made: another process removes it");
}

// Locks the folder. Another process may have taken it for an abandoned one just before.
bool tNewFolder::claim()
{
    m_folder = openFolder(m_part);
    if (!m_folder.valid())
        return false;
    if (::flock(m_folder.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
        return false;
    struct stat opened, named;
    return ::fstat(m_folder.get(), &opened) == 0 && ::lstat(m_part.c_str(), &named) == 0 &&
           opened.st_ino == named.st_ino && opened.st_dev == named.st_dev;
}

void tNewFolder::commit()
{
    if (::fsync(m_folder.get()) != 0 && errno != EINVAL)
        fail(m_path, " cannot be written: ");
    if (!renameNew(m_part, m_path))
        fail(m_path, " cannot be made: ");
    m_committed = true;
    const tDescriptor parent = openFolder(m_parent + "/.");
    if (parent.valid())
        ::fsync(parent.get());
    m_folder.reset();
}
}  // namespace recordings
