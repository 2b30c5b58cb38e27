#include "KestovaRecordings/recordinglist.h"

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <filesystem>
#include <mutex>
#include <set>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <utility>

#include "KestovaRecordings/internal/fileglance.h"
#include "KestovaRecordings/internal/folderview.h"
#include "KestovaRecordings/internal/sheetfile.h"
#include "KestovaRecordings/sheet.h"
#include "KestovaStorage/companions.h"

namespace recordings
{
namespace
{
constexpr unsigned int cMostThreads = 4;
constexpr std::size_t cFewFolders = 8;  // are looked at before further threads have started

std::string nameOf(const std::string& path)
{
    std::string name = std::filesystem::path(path).filename().string();
    if (!name.empty() && name != "." && name != "..")
        return name;
    std::error_code error;
    const auto real = std::filesystem::canonical(path, error);
    return error ? path : real.filename().string();
}

// Returns whether a recorder has named the file after the radar: "0000_2024-05-17_09-12-41_A1_2_B.data" for "A1:2".
bool isNamedAfter(const std::string& file, std::string serial)
{
    const std::size_t colon = serial.find(':');
    if (colon != std::string::npos && colon != 0)
        serial[colon] = '_';
    const std::string start = "_" + serial + "_";
    const std::size_t at = file.rfind(start);
    if (at == std::string::npos)
        return false;
    const std::string rest = file.substr(at + start.size());
    const std::string id = rest.substr(0, rest.find('.'));
    const bool isNumber = !id.empty() && std::all_of(id.begin(), id.end(), [](char c) { return c >= '0' && c <= '9'; });
    return isNumber || (id.size() == 1 && id[0] >= 'A' && id[0] <= 'Z');
}

// Puts a file into the sums of its recording.
void join(tListedFile& sum, const tListedFile& file)
{
    if (file.records != 0)
    {
        sum.firstMs = sum.records == 0 ? file.firstMs : std::min(sum.firstMs, file.firstMs);
        sum.lastMs = std::max(sum.lastMs, file.lastMs);
    }
    sum.records += file.records;
    sum.sizeBytes += file.sizeBytes;
    sum.state = std::max(sum.state, file.state);
    sum.lost += file.lost;
    sum.notes += file.notes;
    sum.kept |= file.kept;
}

// Looks at the data files of one folder.
class tFolderLook
{
public:
    explicit tFolderLook(const tFolderView& folder) : m_folder(folder) {}

    // Returns nothing for what is no data file, which is named.
    std::optional<tListedFile> look(const std::string& name)
    {
        const std::string path = m_folder.path() + name;
        std::string why;
        const auto seen = glanceAt(m_folder.descriptor(), name.c_str(), why);
        if (!seen)
        {
            if (why != std::strerror(ENOENT))
                m_leftOut.push_back({path, why, false});
            return std::nullopt;
        }
        tListedFile file{path, seen->firstMs, seen->lastMs, seen->records, seen->sizeOnDisk, seen->state};
        if (!m_folder.otherFiles.empty())
            addCompanions(name, {true, seen->form, seen->first}, file);
        return file;
    }

    std::vector<tLeftOut> m_leftOut, m_foreignSheets;
    std::uint64_t m_sheets = 0;
    std::string m_radar;

private:
    void addCompanions(const std::string& name, const tDataFileBeginning& beginning, tListedFile& file)
    {
        addSize(storage::fineTimesName(name), file);
        if (addSize(storage::sheetName(name), file))
            addSheet(readSheetSummaryIn(m_folder.descriptor(), name, beginning), file);
    }

    // Returns whether there is such a companion. Both forms of a file have the same.
    bool addSize(const std::string& name, tListedFile& file)
    {
        constexpr std::uint64_t cStatBlock = 512;
        struct stat info;
        if (::fstatat(m_folder.descriptor(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0)
            return false;
        if (m_counted.insert(name).second)
            file.sizeBytes += static_cast<std::uint64_t>(info.st_blocks) * cStatBlock;
        return true;
    }

    void addSheet(const tSheetSummary& sheet, tListedFile& file)
    {
        if (sheet.state == eSheetState::eForeign || sheet.state == eSheetState::eDamaged)
            m_foreignSheets.push_back(
                {file.path, m_folder.path() + sheet.reason, false});  // which begins with the name
        if (!sheet)
            return;
        ++m_sheets;
        file.lost = sheet.lost;
        file.notes = sheet.notes;
        file.kept = sheet.kept;
        if (m_radar.empty())
            m_radar = sheet.radarSerial;
        if (sheet.records == 0 || file.records == 0)
            return;
        file.firstMs = std::min(file.firstMs, sheet.firstMs);
        file.lastMs = std::max(file.lastMs, sheet.lastMs);
    }

    const tFolderView& m_folder;
    std::set<std::string> m_counted;  // companions
};

class tLister
{
public:
    explicit tLister(const tListOptions& options) : m_options(options) {}

    tRecordingList run(const std::vector<std::string>& roots)
    {
        for (const std::string& root : roots)
            addRoot(root);
        work();
        std::stable_sort(m_list.recordings.begin(), m_list.recordings.end(), isNewer);
        const auto byPath = [](const tLeftOut& a, const tLeftOut& b) { return a.path < b.path; };
        std::stable_sort(m_list.leftOut.begin(), m_list.leftOut.end(), byPath);
        std::stable_sort(m_list.foreignSheets.begin(), m_list.foreignSheets.end(), byPath);
        return std::move(m_list);
    }

private:
    static bool isNewer(const tListedRecording& a, const tListedRecording& b)
    {
        if (a.lastMs != b.lastMs)
            return a.lastMs > b.lastMs;
        return a.firstMs != b.firstMs ? a.firstMs > b.firstMs : a.path < b.path;
    }

    void addRoot(const std::string& root)
    {
        struct stat info;
        if (::stat(root.c_str(), &info) != 0)
            m_list.leftOut.push_back({root, errno == ENOENT ? "no such file or folder" : std::strerror(errno), true});
        else if (S_ISDIR(info.st_mode))
            m_folders.push_back({root, true});
        else
            addFile(root);
    }

    void addFile(const std::string& path)
    {
        const std::size_t name = path.rfind('/') + 1;  // npos + 1 is 0
        const auto folder =
            tFolderView::open(name == 0 ? "." : path.substr(0, name), m_options.suffix, eFolderLinks::eFollow);
        if (!folder)
            return m_list.leftOut.push_back({path, std::strerror(errno), true});
        tFolderLook look(*folder);
        tListedRecording recording;
        if (const auto file = look.look(path.substr(name)))
            addTo(recording, *file);
        for (tLeftOut& one : look.m_leftOut)
            m_list.leftOut.push_back({path, one.reason, true});
        const auto files = recording.files != 0 ? std::vector{path} : std::vector<std::string>();
        keep(std::move(recording), path, look, files);
    }

    static void addTo(tListedRecording& recording, const tListedFile& file)
    {
        join(recording, file);
        ++recording.files;
    }

    // Looks at every folder, with further threads once there are many.
    void work()
    {
        std::vector<std::jthread> others;
        std::unique_lock lock(m_mutex);
        while (m_busy > 0 || !m_folders.empty())
        {
            if (others.empty() && m_folders.size() > cFewFolders)
                startHelpers(others);
            if (!takeFolder(lock))
                m_changed.wait(lock);
        }
        m_changed.notify_all();
    }

    void startHelpers(std::vector<std::jthread>& threads)
    try
    {
        for (unsigned int i = 1; i < std::clamp(std::thread::hardware_concurrency(), 1u, cMostThreads); ++i)
            threads.emplace_back([this] { help(); });
    }
    catch (const std::system_error&)
    {
        // Fewer threads do the same work.
    }

    void help()
    {
        std::unique_lock lock(m_mutex);
        while (m_busy > 0 || !m_folders.empty())
            if (!takeFolder(lock))
                m_changed.wait(lock);
        m_changed.notify_all();
    }

    // Returns false if there is none. Looks at it without the lock.
    bool takeFolder(std::unique_lock<std::mutex>& lock)
    {
        if (m_folders.empty())
            return false;
        const tFolder next = std::move(m_folders.front());
        m_folders.pop_front();
        ++m_busy;
        lock.unlock();
        lookInto(next);
        lock.lock();
        --m_busy;
        m_changed.notify_all();
        return true;
    }

    struct tFolder
    {
        std::string path;
        bool asked;
    };

    void lookInto(const tFolder& folder)
    {
        const auto view = tFolderView::open(folder.path, m_options.suffix, eFolderLinks::eFollow);
        if (!view)
            return leaveOut({folder.path, std::strerror(errno), folder.asked});
        {
            const std::lock_guard lock(m_mutex);
            if (!m_known.insert(view->id()).second)
                return;  // links, or several roots, have led here before
            for (const std::string& below : view->folders)
                m_folders.push_back({view->path() + below, false});
        }
        if (view->dataFiles.empty())
            return;
        tFolderLook look(*view);
        tListedRecording recording;
        for (const std::string& name : view->dataFiles)
            if (const auto file = look.look(name))
                addTo(recording, *file);
        keep(std::move(recording), folder.path, look, view->dataFiles);
    }

    void leaveOut(tLeftOut entry)
    {
        const std::lock_guard lock(m_mutex);
        m_list.leftOut.push_back(std::move(entry));
    }

    void keep(tListedRecording recording, const std::string& path, tFolderLook& look,
              const std::vector<std::string>& names)
    {
        recording.path = path.size() > 1 && path.ends_with('/') ? path.substr(0, path.find_last_not_of('/') + 1) : path;
        recording.name = nameOf(recording.path);
        recording.sheets = look.m_sheets;
        recording.radar = look.m_radar;
        const std::lock_guard lock(m_mutex);
        std::move(look.m_leftOut.begin(), look.m_leftOut.end(), std::back_inserter(m_list.leftOut));
        std::move(look.m_foreignSheets.begin(), look.m_foreignSheets.end(), std::back_inserter(m_list.foreignSheets));
        if (recording.files != 0 && isWanted(recording, names))
            m_list.recordings.push_back(std::move(recording));
    }

    bool isWanted(const tListedRecording& recording, const std::vector<std::string>& names) const
    {
        const bool isInTime =
            (m_options.sinceMs == 0 && m_options.untilMs == UINT64_MAX) ||
            (recording.records != 0 && recording.lastMs >= m_options.sinceMs && recording.firstMs <= m_options.untilMs);
        const auto isOfRadar = [&](const std::string& name) { return isNamedAfter(name, m_options.radar); };
        const bool isRadar = m_options.radar.empty() || recording.radar == m_options.radar ||
                             (recording.radar.empty() && std::any_of(names.begin(), names.end(), isOfRadar));
        return isInTime && isRadar && (recording.kept || !m_options.keptOnly);
    }

    const tListOptions& m_options;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<tFolder> m_folders;  // guarded by m_mutex, as is what follows: still to be looked at
    unsigned int m_busy = 0;        // threads that look at one, and may find further ones
    std::set<tFolderView::tId> m_known;
    tRecordingList m_list;
};
}  // namespace

std::string stateName(eRecordingState state)
{
    switch (state)
    {
    case eRecordingState::eFinished:
        return "finished";
    case eRecordingState::eUnfinished:
        return "unfinished";
    case eRecordingState::eRecording:
        return "recording";
    default:
        return "damaged";
    }
}

tRecordingList listRecordings(const std::vector<std::string>& roots, const tListOptions& options)
{
    return tLister(options).run(roots);
}

std::vector<tListedFile> listDataFiles(const std::string& folder, const std::string& suffix)
{
    std::vector<tListedFile> files;
    const auto view = tFolderView::open(folder, suffix, eFolderLinks::eFollow);
    if (!view)
        return files;
    tFolderLook look(*view);
    for (const std::string& name : view->dataFiles)
        if (const auto file = look.look(name))
            files.push_back(*file);
    std::sort(files.begin(), files.end(), [](const tListedFile& a, const tListedFile& b) { return a.path < b.path; });
    return files;
}
}  // namespace recordings
