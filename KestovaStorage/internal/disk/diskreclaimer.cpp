#include "KestovaStorage/internal/disk/diskreclaimer.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include "KestovaStorage/companions.h"
#include "KestovaStorage/internal/disk/paths.h"
#include "UdpSocket/consoleprint.h"

namespace storage
{
namespace
{
using namespace std::chrono_literals;

constexpr auto cPassPeriod = 3s;
constexpr char cReclaimedSuffix[] = ".data";

bool isSameFile(const std::string& a, const std::string& b)
{
    std::error_code ignored;  // a file that no longer exists equals no other
    return std::filesystem::equivalent(a, b, ignored);
}

// Of a file with holes less than its size.
std::uint64_t bytesOnDisk(const std::string& path)
{
    constexpr std::uint64_t cStatBlock = 512;
    struct stat info
    {};
    return ::stat(path.c_str(), &info) == 0 ? static_cast<std::uint64_t>(info.st_blocks) * cStatBlock : 0;
}

// What deleting the file gives back.
std::uint64_t bytesWithCompanions(const std::string& path)
{
    return bytesOnDisk(path) + bytesOnDisk(sheetName(path)) + bytesOnDisk(fineTimesName(path));
}

std::string absolute(std::string path)
{
    paths::makeAbsolute(path);
    return path;
}
}  // namespace

void tDiskReclaimer::addRoot(const void* owner, const std::string& root)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_storagePathes[owner] = root;
    m_lastVisited = m_storagePathes.begin()->first;
    if (m_enabled != nullptr && !std::exchange(m_threadStarted, true))
        startThread();
}

void tDiskReclaimer::removeRoot(const void* owner)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_storagePathes.erase(owner);
}

void tDiskReclaimer::startThread()
{
    std::thread([this] {
        for (;;)
        {
            std::this_thread::sleep_for(cPassPeriod);
            if (std::atomic_ref<bool>(*m_enabled).load())
                pass();
        }
    }).detach();  // what it uses is never destroyed
}

void tDiskReclaimer::pass()
{
    const std::string root = nextRoot();
    if (!root.empty())
        reclaim(absolute(root));
}

// One root a pass, in turn. The last root visited may have been removed since.
std::string tDiskReclaimer::nextRoot()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_storagePathes.empty())
        return {};
    auto next = m_storagePathes.upper_bound(m_lastVisited);
    if (next == m_storagePathes.end())
        next = m_storagePathes.begin();
    m_lastVisited = next->first;
    return next->second;
}

void tDiskReclaimer::reclaim(const std::string& root)
{
    while (m_isLow(root) && deleteOldest(root))
    {}
}

// Deletes the oldest data file and the folders that it leaves empty, upwards. Returns false if nothing can be deleted.
bool tDiskReclaimer::deleteOldest(const std::string& root)
{
    std::string path = oldestToDelete(root);
    if (path.empty())
        return false;
    const std::uint64_t bytes = bytesWithCompanions(path);
    if (!removeDataFile(path))
    {
        Kestova::console::printSystemError(path.c_str());
        return false;
    }
    m_observer.through([&](iReclaimObserver& observer) { observer.UpdateReclaimed(path, bytes); });
    // Kept: this does not stop at the root; an emptied root and empty folders above it are deleted too. rmdir() fails
    // on a root that is a link, which remove() would delete however full its folder is.
    do
        path.erase(path.rfind('/'));
    while (path.find('/') != std::string::npos && ::rmdir(path.c_str()) == 0);
    return true;
}

// Returns an empty text if there is none before the first file that this process writes.
std::string tDiskReclaimer::oldestToDelete(const std::string& root)
{
    std::set<std::string> files;
    paths::listFolder(root, files, true, cReclaimedSuffix, paths::eLinks::eIgnore);
    for (const std::string& path : files)  // numbers and dates make the byte order of paths the order of age
    {
        if (isWriting(path))
            return {};
        if (!isKept(path) && !isBeingWritten(path))
            return path;
    }
    return {};
}

// Roots may name one folder in several ways: files are compared by what they are, too.
bool tDiskReclaimer::isWriting(const std::string& path)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return std::any_of(m_writingFilePathes.begin(), m_writingFilePathes.end(),
                       [&](const std::string& writing) { return path == writing || isSameFile(path, writing); });
}

tDiskReclaimer::tWritingMark::tWritingMark(tDiskReclaimer& reclaimer, const std::string& path)
    : m_reclaimer(&reclaimer), m_path(absolute(path))
{
    const std::lock_guard<std::mutex> lock(reclaimer.m_mutex);
    reclaimer.m_writingFilePathes.insert(m_path);
}

tDiskReclaimer::tWritingMark::tWritingMark(tWritingMark&& other) noexcept
    : m_reclaimer(std::exchange(other.m_reclaimer, nullptr)), m_path(std::move(other.m_path))
{}

tDiskReclaimer::tWritingMark& tDiskReclaimer::tWritingMark::operator=(tWritingMark&& other) noexcept
{
    reset();
    m_reclaimer = std::exchange(other.m_reclaimer, nullptr);
    m_path = std::move(other.m_path);
    return *this;
}

void tDiskReclaimer::tWritingMark::reset()
{
    if (m_reclaimer == nullptr)
        return;
    const std::lock_guard<std::mutex> lock(m_reclaimer->m_mutex);
    const auto found = m_reclaimer->m_writingFilePathes.find(m_path);
    if (found != m_reclaimer->m_writingFilePathes.end())
        m_reclaimer->m_writingFilePathes.erase(found);
    m_reclaimer = nullptr;
}
}  // namespace storage
