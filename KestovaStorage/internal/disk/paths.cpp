#include "KestovaStorage/internal/disk/paths.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <memory>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "KestovaStorage/partfolder.h"
#include "UdpSocket/consoleprint.h"

namespace storage::paths
{
bool exists(const std::string& path)
{
    return ::access(path.c_str(), F_OK) == 0;
}

ePathKind kindOf(const std::string& path)
{
    struct stat info;
    if (!exists(path) || ::stat(path.c_str(), &info) != 0)
        return ePathKind::eNone;
    return S_ISDIR(info.st_mode) ? ePathKind::eFolder : ePathKind::eFile;
}

void normalize(std::string& path)
{
    std::replace(path.begin(), path.end(), '\\', '/');
    if (!path.empty() && path.back() != '/')
        path += '/';
}

void makeAbsolute(std::string& path)
{
    const std::unique_ptr<char, void (*)(void*)> folder(::getcwd(nullptr, 0), std::free);
    if (!folder)
    {
        Kestova::console::printSystemError("getcwd error");
        return;
    }
    if (path.starts_with('/') || (path.size() > 1 && path[1] == ':'))
        return;
    if (path.starts_with("./"))
        path.erase(0, 2);
    const std::string base = folder.get();
    path = base + (base.ends_with('/') ? "" : "/") + path;
}

bool makeFolders(const std::string& path)
{
    for (std::size_t slash = path.find('/'); slash != std::string::npos; slash = path.find('/', slash + 1))
    {
        const std::string prefix = path.substr(0, slash);
        if (prefix.empty() || exists(prefix))
            continue;
        if (::mkdir(prefix.c_str(), 0700) != 0 && errno != EEXIST)
        {
            Kestova::console::printSystemError("Failed to create directory.");
            break;
        }
    }
    return !path.empty() && exists(path);
}

std::int64_t fileSize(const char* file)
{
    struct stat info;
    return ::stat(file, &info) == 0 ? info.st_size : 0;
}

namespace
{
struct tFolderId
{
    dev_t device;
    ino_t inode;
    bool operator==(const tFolderId& other) const = default;
};

enum class eEntryKind
{
    eFolder,
    eLinkedFolder,
    eOther,
    eUnknown  // cannot be examined
};

// Calls stat only if the listing does not hold the kind.
eEntryKind entryKind(const dirent& entry, const std::string& full)
{
    if (entry.d_type == DT_DIR)
        return eEntryKind::eFolder;
    if (entry.d_type != DT_UNKNOWN && entry.d_type != DT_LNK)
        return eEntryKind::eOther;
    struct stat info;
    if (::stat(full.c_str(), &info) != 0)
        return eEntryKind::eUnknown;
    if (!S_ISDIR(info.st_mode))
        return eEntryKind::eOther;
    struct stat link;
    return ::lstat(full.c_str(), &link) == 0 && S_ISLNK(link.st_mode) ? eEntryKind::eLinkedFolder : eEntryKind::eFolder;
}

class tLister
{
public:
    tLister(std::set<std::string>& out, bool recursive, const std::string& suffix, eLinks links)
        : m_out(out), m_recursive(recursive), m_suffix(suffix), m_links(links)
    {}

    void list(std::string dir)
    {
        if (dir.find("System Volume Information") != std::string::npos)
            return;
        normalize(dir);
        std::vector<std::string> below;
        if (!readEntries(dir, below))
            return;
        for (const std::string& path : below)
            list(path);
        m_above.pop_back();
    }

private:
    // Adds the entries of one folder and gathers the folders to descend into. Returns whether it was entered.
    bool readEntries(const std::string& dir, std::vector<std::string>& below)
    {
        const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir(dir.c_str()), ::closedir);
        if (!folder)
        {
            Kestova::console::print("%s: open %s error %s\n", "GetFileFolderInDir", dir.c_str(), std::strerror(errno));
            return false;
        }
        if (!pushFolder(folder.get()))
            return false;
        while (const dirent* entry = ::readdir(folder.get()))
            addEntry(*entry, dir, below);
        return true;
    }

    // Returns false for a folder that is being listed already: links have led back to it.
    bool pushFolder(DIR* folder)
    {
        struct stat info;
        if (::fstat(::dirfd(folder), &info) != 0)
            return false;
        const tFolderId id{info.st_dev, info.st_ino};
        if (std::find(m_above.begin(), m_above.end(), id) != m_above.end())
            return false;
        m_above.push_back(id);
        return true;
    }

    void addEntry(const dirent& entry, const std::string& dir, std::vector<std::string>& below)
    {
        const std::string_view name = entry.d_name;
        if (name == "." || name == "..")
            return;
        const std::string full = dir + entry.d_name;
        const eEntryKind kind = entryKind(entry, full);
        if (kind == eEntryKind::eFolder || (kind == eEntryKind::eLinkedFolder && m_links == eLinks::eFollow))
        {
            if (isPartFolder(entry.d_name))
                return;
            if (m_suffix.empty())
                m_out.insert(full);
            if (m_recursive)
                below.push_back(full);
        }
        else if (kind == eEntryKind::eOther)
        {
            const std::size_t dot = full.rfind('.');
            if (dot != std::string::npos && full.compare(dot, std::string::npos, m_suffix) == 0)
                m_out.insert(full);
        }
    }

    std::set<std::string>& m_out;
    bool m_recursive;
    const std::string& m_suffix;
    eLinks m_links;
    std::vector<tFolderId> m_above;  // the folders on the way down to the one being listed
};
}  // namespace

void listFolder(const std::string& dir, std::set<std::string>& out, bool recursive, const std::string& suffix,
                eLinks links)
{
    tLister(out, recursive, suffix, links).list(dir);
}
}  // namespace storage::paths
