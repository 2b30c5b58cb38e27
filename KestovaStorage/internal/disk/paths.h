// Paths and folders of a file system: what a path is, how it is written, what lies below it.
#ifndef KESTOVA_STORAGE_DISK_PATHS_H
#define KESTOVA_STORAGE_DISK_PATHS_H

#include <cstdint>
#include <set>
#include <string>

namespace storage::paths
{
bool exists(const std::string& path);

enum class ePathKind
{
    eNone,  // nothing is there, or it cannot be examined
    eFile,  // or anything else that is no folder
    eFolder
};
ePathKind kindOf(const std::string& path);

void normalize(std::string& path);     // "\" to "/", and a final "/" unless empty
void makeAbsolute(std::string& path);  // against the working folder; failure is reported through perror
// Creates every folder of the path that ends with "/". Returns whether the whole path exists then; the first folder
// that cannot be created is reported through perror.
bool makeFolders(const std::string& path);
std::int64_t fileSize(const char* file);  // returns 0 if it cannot be examined

// Folders that are links: an application's listing follows them and enters no folder twice on one way down. A listing
// of what is to be deleted ignores them.
enum class eLinks
{
    eFollow,
    eIgnore
};
// Adds full paths to `out`: files whose text from the last "." on equals `suffix` and, if `suffix` is empty, folders.
// Passes over folders in which a recording is being made (KestovaStorage/partfolder.h).
void listFolder(const std::string& dir, std::set<std::string>& out, bool recursive, const std::string& suffix,
                eLinks links = eLinks::eFollow);
}  // namespace storage::paths

#endif
