#include "KestovaRecordings/internal/removal.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <set>
#include <unistd.h>

#include "KestovaRecordings/internal/folderview.h"
#include "KestovaRecordings/internal/sheetformat.h"
#include "KestovaStorage/companions.h"
#include "KestovaStorage/datafileconverter.h"
#include "KestovaStorage/finetimesformat.h"
#include "common/descriptor.h"

namespace recordings
{
namespace
{
constexpr std::string_view cHidden = ".pruned.";
constexpr std::string_view cSheetInWriting = ".sheet.part";
constexpr int cMostHidden = 100;  // folders of one name that wait for removal

// The names of a data file's other form and of its companions.
void addNames(const std::string& dataFile, const std::string& suffix, std::set<std::string, std::less<>>& names)
{
    const std::string compressed = ".tar" + suffix;
    names.insert(dataFile);
    names.insert(dataFile.ends_with(compressed) ? dataFile.substr(0, dataFile.size() - compressed.size()) + suffix
                                                : storage::tDataFileConverter::CompressedName(dataFile, suffix));
    names.insert(storage::sheetName(dataFile));
    names.insert(storage::fineTimesName(dataFile));
}

// Returns the name that a file has once it is written: "a.json" of ".a.json.part".
std::string_view finalName(std::string_view name)
{
    if (name.starts_with('.'))
        name.remove_prefix(1);
    return name.substr(0, name.rfind(".part"));
}

// Returns whether a file is a sheet or fine times, whatever data file they belonged to.
bool isCompanion(const tFolderView& folder, const std::string& name)
{
    if (!hasSuffix(name, ".json") && !hasSuffix(name, ".fine"))
        return false;
    const tDescriptor file(::openat(folder.descriptor(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    char bytes[64];
    const std::string_view beginning(bytes, file.valid() ? file.readAt(bytes, sizeof bytes, 0) : 0);
    return beginning.starts_with(storage::cFineTimesMagic) || beginning.find(cSheetSchemas) != std::string_view::npos;
}

// The data files of a folder and the files that go with them: companions, and what was being written in their place.
std::vector<std::string> ownFiles(const tFolderView& folder, const std::string& suffix)
{
    std::set<std::string, std::less<>> names;
    for (const std::string& name : folder.dataFiles)
        addNames(name, suffix, names);
    std::vector<std::string> own;
    for (const std::string& name : folder.otherFiles)
        if (name == cSheetInWriting || names.contains(finalName(name)) || isCompanion(folder, name))
            own.push_back(name);
    own.insert(own.end(), folder.dataFiles.begin(), folder.dataFiles.end());  // last: they name the others
    return own;
}

std::string originalName(std::string_view hidden)
{
    hidden.remove_prefix(cHidden.size());
    return std::string(hidden.substr(std::min(hidden.find('.') + 1, hidden.size())));
}

std::string hiddenName(const std::string& name, int number)
{
    std::string hidden = std::string(cHidden) + std::to_string(number) + "." + name;
    return hidden.substr(0, NAME_MAX);
}

// Renames the folder; returns its hidden name, empty with errno set if that fails.
std::string hide(const std::string& root, const std::string& name)
{
    for (int number = 0; number < cMostHidden; ++number)
    {
        std::string hidden = hiddenName(name, number);
        if (std::rename((root + name).c_str(), (root + hidden).c_str()) == 0)
            return hidden;
        if (errno != EEXIST && errno != ENOTEMPTY)
            break;
    }
    return {};
}
}  // namespace

std::string obstacle(const std::string& dataFile)
{
    if (storage::isBeingWritten(dataFile))
        return "is being recorded";
    if (storage::isBeingPlayed(dataFile))
        return "is being played";
    return storage::isKept(dataFile) ? "is kept" : "";
}

std::string obstacleIn(const std::string& folder, const std::string& suffix)
{
    const auto view = tFolderView::open(folder, suffix, eFolderLinks::eIgnore);
    if (!view)
        return {};
    for (const std::string& name : view->dataFiles)
        if (std::string why = obstacle(view->path() + name); !why.empty())
            return why;
    return {};
}

tStatus removeRecording(const std::string& root, const std::string& name, const std::string& suffix)
{
    if (std::string why = obstacleIn(root + name, suffix); !why.empty())
        return {tStatus::eCode::eRefused, why};
    const std::string hidden = hide(root, name);
    if (hidden.empty())
        return tStatus::system(errno);
    return clearLeftover(root, hidden, suffix);
}

bool isLeftover(std::string_view name)
{
    return name.starts_with(cHidden);
}

namespace
{
// Not every file system can refuse to replace; one that cannot replaces an empty folder alone.
bool giveBack(const std::string& path, const std::string& original)
{
    if (::renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, original.c_str(), RENAME_NOREPLACE) == 0)
        return true;
    return (errno == EINVAL && std::rename(path.c_str(), original.c_str()) == 0) || errno == ENOENT;
}
}  // namespace

// rmdir() fails for a folder that still holds something: that is none of ours, and comes back under its name.
tStatus clearLeftover(const std::string& root, const std::string& hidden, const std::string& suffix)
{
    const std::string path = root + hidden;
    const std::string why = obstacleIn(path, suffix);  // of somebody who came between looking and hiding
    const auto view = tFolderView::open(path, suffix, eFolderLinks::eIgnore);
    if (why.empty() && view)
        for (const std::string& name : ownFiles(*view, suffix))
            ::unlinkat(view->descriptor(), name.c_str(), 0);
    const bool isLeft = !why.empty() || (::rmdir(path.c_str()) != 0 && (errno == ENOTEMPTY || errno == EEXIST));
    if (isLeft && !giveBack(path, root + originalName(hidden)))
        return tStatus::system(errno, hidden);
    return why.empty() ? tStatus() : tStatus(tStatus::eCode::eRefused, why);
}
}  // namespace recordings
