#include "KestovaRecordings/archive.h"

#include <cerrno>
#include <fmt/format.h>
#include <set>
#include <unistd.h>

#include "KestovaRecordings/failure.h"

namespace recordings
{
using storage::tDataStorageIO;

std::vector<std::string> findRecordings(const std::string& path, const std::string& suffix)
{
    switch (tDataStorageIO::IsFileOrFolder(path))
    {
    case storage::eFile:
        return {path};
    case storage::eFolder:
        break;
    default:
        throw tFailure(access(path.c_str(), F_OK) != 0 && errno == EACCES
                           ? path + ": a folder on its way may not be searched by this user"
                           : path + ": no such file or folder");
    }
    if (access(path.c_str(), R_OK | X_OK) != 0)
        throw tFailure(path + ": this folder may not be searched by this user");
    std::set<std::string> found;
    tDataStorageIO::GetFileFolderInDir(path, found, true, suffix);
    if (found.empty())
        throw tFailure(fmt::format("{} holds no {} files: is it the storage root? (see --suffix)", path, suffix));
    return {found.begin(), found.end()};
}

bool isReadable(storage::tDataFile& file)
{
    std::string bytes;
    for (std::size_t i = 0; i < file.recordCount(); ++i)
    {
        if (file.read(i, bytes))
            return true;
    }
    return false;
}

std::string kindName(storage::tFileHeadSymbol kind)
{
    return storage::fileFormName(kind);
}
}  // namespace recordings
