#include "KestovaRecordings/internal/folderview.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace recordings
{
namespace
{
enum class eEntry
{
    eFolder,
    eFile,
    eNone  // gone, or not to be looked at
};

// Calls fstatat only if the listing does not hold the kind.
eEntry kindOf(const dirent& entry, int folder, eFolderLinks links)
{
    if (entry.d_type == DT_DIR)
        return eEntry::eFolder;
    const bool isKnown = entry.d_type != DT_UNKNOWN && entry.d_type != DT_LNK;
    if (isKnown)
        return eEntry::eFile;
    struct stat info;
    const int follow = links == eFolderLinks::eFollow ? 0 : AT_SYMLINK_NOFOLLOW;
    if (::fstatat(folder, entry.d_name, &info, follow) != 0 || S_ISLNK(info.st_mode))
        return eEntry::eNone;
    return S_ISDIR(info.st_mode) ? eEntry::eFolder : eEntry::eFile;
}
}  // namespace

bool hasSuffix(std::string_view name, std::string_view suffix)
{
    const std::size_t dot = name.rfind('.');
    return dot != std::string_view::npos && name.substr(dot) == suffix;
}

std::optional<tFolderView> tFolderView::open(const std::string& path, std::string_view suffix, eFolderLinks links)
{
    const int file = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR* const folder = file >= 0 ? ::fdopendir(file) : nullptr;
    if (folder == nullptr)
    {
        if (file >= 0)
            ::close(file);
        return std::nullopt;
    }
    tFolderView view(folder, path.ends_with('/') ? path : path + '/');
    struct stat info;
    if (::fstat(file, &info) == 0)
        view.m_id = {info.st_dev, info.st_ino};
    while (const dirent* const entry = ::readdir(folder))
        view.add(*entry, suffix, links);
    return view;
}

void tFolderView::add(const dirent& entry, std::string_view suffix, eFolderLinks links)
{
    const std::string_view name = entry.d_name;
    if (name == "." || name == "..")
        return;
    switch (kindOf(entry, descriptor(), links))
    {
    case eEntry::eFolder:
        (name.starts_with('.') ? hiddenFolders : folders).emplace_back(name);
        break;
    case eEntry::eFile:
        (hasSuffix(name, suffix) ? dataFiles : otherFiles).emplace_back(name);
        break;
    case eEntry::eNone:
        break;
    }
}
}  // namespace recordings
