#include "KestovaRecordings/prune.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <unistd.h>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/internal/folderview.h"
#include "KestovaRecordings/internal/removal.h"
#include "KestovaRecordings/recordinglist.h"
#include "KestovaStorage/companions.h"
#include "KestovaStorage/datafileconverter.h"

namespace recordings
{
namespace
{
std::uint64_t nowMs()
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

// Returns whether a recorder has named the folder: Data_NNNNNN_*, with more digits from a million on.
bool isRecordingName(const std::string& name)
{
    constexpr std::string_view cPrefix = "Data_";
    constexpr std::size_t cDigits = 6;
    if (!name.starts_with(cPrefix))
        return false;
    const std::size_t end = name.find_first_not_of("0123456789", cPrefix.size());
    return end != std::string::npos && name[end] == '_' && end >= cPrefix.size() + cDigits;
}

struct tCandidate
{
    tListedFile entry;
    bool isFile = false;  // of the own recording
};

class tPruner
{
public:
    tPruner(const std::string& root, const tPruneLimits& limits, const tPruneOptions& options,
            const std::function<void(const tPruned&)>& deleted)
        : m_root(root.ends_with('/') ? root : root + '/'), m_limits(limits), m_options(options), m_deleted(deleted),
          m_ownName(nameOf(options.ownFolder)), m_inHand(nameOf(options.inHand))
    {}

    tPruneResult run()
    {
        findCandidates();
        updateFree();
        std::stable_sort(m_candidates.begin(), m_candidates.end(), isOlder);
        for (const tCandidate& candidate : m_candidates)
        {
            const auto cause = causeFor(candidate.entry);
            if (!cause)
                break;  // all that follow are younger
            take(candidate, *cause);
        }
        m_result.reached = !isTooMuch() && !isTooFull() && !m_olderIsLeft;
        return std::move(m_result);
    }

private:
    static std::string nameOf(const std::string& path) { return std::filesystem::path(path).filename().string(); }

    static bool isOlder(const tCandidate& a, const tCandidate& b)
    {
        return a.entry.lastMs != b.entry.lastMs ? a.entry.lastMs < b.entry.lastMs : a.entry.path < b.entry.path;
    }

    void findCandidates()
    {
        const auto view = tFolderView::open(m_root, m_options.suffix, eFolderLinks::eIgnore);
        if (!view)
            throw tFailure(fmt::format("{}: {}", m_root, std::strerror(errno)));
        for (const std::string& hidden : view->hiddenFolders)
            if (!m_options.dryRun && isLeftover(hidden))
                clear(hidden);
        std::vector<std::string> folders;
        for (const std::string& name : view->folders)
            if (isRecordingName(name))
                folders.push_back(m_root + name);
        std::sort(folders.begin(), folders.end());
        tListOptions listing;
        listing.suffix = m_options.suffix;
        for (const tListedRecording& one : listRecordings(folders, listing).recordings)
            if (std::binary_search(folders.begin(), folders.end(), one.path))
                addRecording(one);
    }

    void clear(const std::string& hidden)
    {
        const tStatus status = clearLeftover(m_root, hidden, m_options.suffix);
        if (!status && status.code() != tStatus::eCode::eRefused)
            m_result.failed.push_back({m_root + hidden, status.text(), false});
    }

    void addRecording(const tListedRecording& recording)
    {
        ++m_result.recordings;
        m_result.bytes += recording.sizeBytes;
        if (!m_ownName.empty() && recording.name == m_ownName)
        {
            for (const tListedFile& file : listDataFiles(recording.path, m_options.suffix))
                if (file.records != 0)
                    m_candidates.push_back({file, true});
        }
        else if (recording.records != 0)
            m_candidates.push_back({recording, false});
    }

    bool isTooOld(const tListedFile& entry) const
    {
        return m_limits.maxAgeMs && entry.lastMs < m_now && m_now - entry.lastMs > *m_limits.maxAgeMs;
    }
    bool isTooMuch() const { return m_limits.maxBytes && m_result.bytes > *m_limits.maxBytes; }
    bool isTooFull() const { return m_limits.freeBytes && m_isFreeKnown && m_result.freeBytes < *m_limits.freeBytes; }

    std::optional<ePruneCause> causeFor(const tListedFile& entry) const
    {
        if (isTooOld(entry))
            return ePruneCause::eAge;
        if (isTooMuch())
            return ePruneCause::eSize;
        return isTooFull() ? std::optional(ePruneCause::eFree) : std::nullopt;
    }

    void take(const tCandidate& candidate, ePruneCause cause)
    {
        const tListedFile& entry = candidate.entry;
        const tStatus status = candidate.isFile ? removeFile(entry) : removeFolder(entry.path);
        if (!status)
        {
            m_olderIsLeft |= cause == ePruneCause::eAge;
            if (status.error() != ENOENT)  // otherwise somebody else was faster
                (status.code() == tStatus::eCode::eRefused ? m_result.passedOver : m_result.failed)
                    .push_back({entry.path, status.text(), false});
            return;
        }
        m_result.deleted.push_back({entry.path, entry.firstMs, entry.lastMs, entry.sizeBytes, cause});
        m_result.recordings -= candidate.isFile ? 0 : 1;
        m_result.bytes -= std::min(m_result.bytes, entry.sizeBytes);
        m_result.freeBytes += entry.sizeBytes;
        updateFree();
        m_deleted(m_result.deleted.back());
    }

    // Some file systems give room back later, and an open file keeps its own: what was deleted counts at once, so that
    // no more is deleted than necessary.
    void updateFree()
    {
        std::error_code error;
        const auto space = std::filesystem::space(m_root, error);
        m_isFreeKnown = !error;
        if (m_isFreeKnown)
            m_result.freeBytes = std::max<std::uint64_t>(m_result.freeBytes, space.available);
    }

    tStatus removeFolder(const std::string& path)
    {
        const std::string name = path.substr(m_root.size());
        if (!m_options.dryRun)
            return removeRecording(m_root, name, m_options.suffix);
        const std::string why = obstacleIn(path, m_options.suffix);
        return why.empty() ? tStatus() : tStatus(tStatus::eCode::eRefused, why);
    }

    tStatus removeFile(const tListedFile& file)
    {
        const std::string compressed = storage::tDataFileConverter::CompressedName(file.path, m_options.suffix);
        std::string why = obstacle(file.path);
        if (why.empty() && (nameOf(file.path) == m_inHand || file.state == eRecordingState::eRecording))
            why = "is being recorded";
        if (why.empty() && ::access((compressed + ".part").c_str(), F_OK) == 0)
            why = "is being compressed";
        if (!why.empty())
            return {tStatus::eCode::eRefused, why};
        return m_options.dryRun || storage::removeDataFile(file.path) ? tStatus() : tStatus::system(errno);
    }

    const std::string m_root;  // ends with "/"
    const tPruneLimits& m_limits;
    const tPruneOptions& m_options;
    const std::function<void(const tPruned&)>& m_deleted;
    const std::string m_ownName, m_inHand;
    const std::uint64_t m_now = nowMs();
    std::vector<tCandidate> m_candidates;
    bool m_isFreeKnown = false;
    bool m_olderIsLeft = false;  // something too old was not deleted
    tPruneResult m_result;
};
}  // namespace

std::string causeName(ePruneCause cause)
{
    switch (cause)
    {
    case ePruneCause::eAge:
        return "max-age";
    case ePruneCause::eSize:
        return "max-size";
    default:
        return "min-free";
    }
}

tPruneResult pruneRoot(const std::string& root, const tPruneLimits& limits, const tPruneOptions& options,
                       const std::function<void(const tPruned&)>& deleted)
{
    return tPruner(root, limits, options, deleted).run();
}
}  // namespace recordings
