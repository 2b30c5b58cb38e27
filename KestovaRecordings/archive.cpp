#include "KestovaRecordings/archive.h"

#include <fmt/format.h>
#include <set>

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
        throw tFailure(fmt::format("{}: no such file or folder", path));
    }
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
