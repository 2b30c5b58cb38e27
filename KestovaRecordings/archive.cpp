#include "KestovaRecordings/archive.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <set>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <unordered_set>

#include "KestovaRecordings/internal/folderview.h"
#include "KestovaStorage/datafileconverter.h"

namespace recordings
{
using storage::tDataStorageIO;

namespace
{
class tFinder
{
public:
    explicit tFinder(const std::string& suffix) : m_suffix(suffix) {}

    // Adds every data file below the folder; a folder that links lead back to is entered once on the way down.
    void find(const std::string& folder)
    {
        const auto view = tFolderView::open(folder, m_suffix, eFolderLinks::eFollow);
        if (!view || std::find(m_above.begin(), m_above.end(), view->id()) != m_above.end())
            return;
        m_above.push_back(view->id());
        for (const std::string& name : view->dataFiles)
            m_found.insert(view->path() + name);
        for (const std::string& name : view->folders)
            find(view->path() + name);
        m_above.pop_back();
    }

    std::set<std::string> m_found;

private:
    const std::string& m_suffix;
    std::vector<tFolderView::tId> m_above;
};

bool holdTheSame(const storage::tDataFile& plain, const storage::tDataFile& compressed)
{
    if (plain.isCompressed() || !compressed.isCompressed() || compressed.damagedCount() != 0 ||
        plain.recordCount() != compressed.recordCount())
        return false;
    for (std::size_t i = 0; i < plain.recordCount(); ++i)
        if (plain.record(i).timeMs != compressed.record(i).timeMs)
            return false;
    return true;
}

// Returns the plain files whose compressed form is one of the files, too, and whole.
std::vector<std::string> compressedToo(const std::vector<std::string>& files, const std::string& suffix)
{
    const std::unordered_set<std::string> known(files.begin(), files.end());
    std::vector<std::string> plain;
    for (const std::string& file : files)
    {
        const std::string compressed = storage::tDataFileConverter::CompressedName(file, suffix);
        storage::tDataFile one, other;
        if (known.contains(compressed) && one.open(file) && other.open(compressed) && holdTheSame(one, other))
            plain.push_back(file);
    }
    return plain;
}

// Removes them from the files, and names those that stay: a recorder that lives removes a plain file as soon as its
// compressed form is on the disk; one that died in between has left both.
void leaveOutCompressedOnes(tFoundFiles& found, const std::string& suffix)
{
    constexpr std::chrono::milliseconds cLongest{1000}, cStep{10};
    std::vector<std::string> plain = compressedToo(found.files, suffix);
    std::erase_if(found.files, [&](const std::string& file) { return std::ranges::find(plain, file) != plain.end(); });
    const auto deadline = std::chrono::steady_clock::now() + cLongest;
    const auto isGone = [](const std::string& file) { return !tDataStorageIO::IsExistPath(file); };
    for (std::erase_if(plain, isGone); !plain.empty() && std::chrono::steady_clock::now() < deadline;
         std::erase_if(plain, isGone))
        std::this_thread::sleep_for(cStep);
    for (const std::string& file : plain)
        found.leftOut.push_back(
            {file,
             "its compressed form, which holds the same records, is beside it and is read instead: remove this one"});
}
}  // namespace

std::vector<std::string> findRecordings(const std::string& path, const std::string& suffix)
{
    struct stat info;
    if (::stat(path.c_str(), &info) != 0)
        throw tFailure(fmt::format("{}: {}", path, errno == ENOENT ? "no such file or folder" : std::strerror(errno)));
    if (S_ISREG(info.st_mode))
        return {path};
    if (!S_ISDIR(info.st_mode))
        throw tFailure(fmt::format("{}: no file or folder", path));
    if (::access(path.c_str(), R_OK | X_OK) != 0)
        throw tFailure(fmt::format("{}: cannot be searched: {}", path, std::strerror(errno)));
    tFinder finder(suffix);
    finder.find(path);
    if (finder.m_found.empty())
        throw tFailure(fmt::format("{}: holds no {} files: is it the storage root? (see --suffix)", path, suffix));
    return {finder.m_found.begin(), finder.m_found.end()};
}

tFoundFiles findAllRecordings(const std::vector<std::string>& paths, const std::string& suffix)
{
    tFoundFiles found;
    std::set<std::string> known;
    for (const std::string& path : paths)
    {
        try
        {
            for (std::string& file : findRecordings(path, suffix))
            {
                std::error_code error;
                const std::string real = std::filesystem::canonical(file, error).string();
                if (error || known.insert(real).second)
                    found.files.push_back(std::move(file));
            }
        }
        catch (const tFailure& failure)
        {
            found.leftOut.push_back(leftOut(path, failure.what(), true));
        }
    }
    leaveOutCompressedOnes(found, suffix);
    return found;
}

std::optional<std::string> presentForm(const std::string& file, const std::vector<std::string>& files,
                                       const std::string& suffix)
{
    if (tDataStorageIO::IsExistPath(file))
        return file;
    const std::string compressed = storage::tDataFileConverter::CompressedName(file, suffix);
    if (!tDataStorageIO::IsExistPath(compressed) || std::find(files.begin(), files.end(), compressed) != files.end())
        return std::nullopt;
    return compressed;
}

tLeftOut leftOut(const std::string& path, const std::string& why, bool asked)
{
    const std::string prefix = path + ": ";
    return {path, why.compare(0, prefix.size(), prefix) == 0 ? why.substr(prefix.size()) : why, asked};
}

tFailure nothingLeft(const std::vector<tLeftOut>& leftOut)
{
    if (leftOut.empty())
        return tFailure("the files were deleted meanwhile");
    const tLeftOut& first = leftOut.front();
    return tFailure(fmt::format("{}: {}", first.path, first.reason));
}

std::uint64_t sizeOnDisk(const std::string& path)
{
    constexpr std::uint64_t cBlock = 512;  // of st_blocks, whatever the file system's own is
    struct stat info;
    return ::stat(path.c_str(), &info) == 0 ? static_cast<std::uint64_t>(info.st_blocks) * cBlock : 0;
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
