// tFolderView: a folder, open, with the names in it: what a walk over recordings goes by.
//
// Errors   a folder that cannot be opened gives no view, and errno is set.
// Threads  one at a time.
#ifndef KESTOVA_RECORDINGS_INTERNAL_FOLDERVIEW_H
#define KESTOVA_RECORDINGS_INTERNAL_FOLDERVIEW_H

#include <cstdint>
#include <dirent.h>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace recordings
{
enum class eFolderLinks
{
    eFollow,  // a link to a folder is a folder
    eIgnore   // links are neither folders nor files
};

class tFolderView
{
public:
    using tId = std::pair<std::uint64_t, std::uint64_t>;  // device and inode

    static std::optional<tFolderView> open(const std::string& path, std::string_view suffix, eFolderLinks links);

    const std::string& path() const { return m_path; }  // as given, with a "/" at its end
    int descriptor() const { return ::dirfd(m_folder.get()); }
    const tId& id() const { return m_id; }

    // Names, in no order. Data files are those whose text from the last "." on is the suffix.
    std::vector<std::string> dataFiles, otherFiles;
    std::vector<std::string> folders;
    std::vector<std::string> hiddenFolders;  // what is being made or removed

private:
    struct tClose
    {
        void operator()(DIR* folder) const { ::closedir(folder); }
    };
    tFolderView(DIR* folder, std::string path) : m_folder(folder), m_path(std::move(path)) {}
    void add(const dirent& entry, std::string_view suffix, eFolderLinks links);

    std::unique_ptr<DIR, tClose> m_folder;
    std::string m_path;
    tId m_id{};
};

bool hasSuffix(std::string_view name, std::string_view suffix);
}  // namespace recordings

#endif
