// Paths and folders: what tDataStorageIO offers as static operations, and the naming rules' folder listings.
#ifndef KESTOVA_STORAGE_DISK_PATHS_H
#define KESTOVA_STORAGE_DISK_PATHS_H

#include <cstdint>
#include <set>
#include <string>

#include "KestovaStorage/datastorageio.h"

namespace storage::paths
{
bool exists(const std::string& path);
tPathProperty property(const std::string& path);
void normalize(std::string& path);
void makeAbsolute(std::string& path);
bool makeFolders(const std::string& path);
std::int64_t fileSize(const char* file);  // 0 where it cannot be examined

// Folders that are links: an application's listing follows them (and enters no folder twice on one way down); whoever
// deletes what it finds does not.
enum class eLinks
{
    eFollow,
    eIgnore
};
void listFolder(const std::string& dir, std::set<std::string>& out, bool recursive, const std::string& suffix,
                eLinks links = eLinks::eFollow);
}  // namespace storage::paths

#endif
