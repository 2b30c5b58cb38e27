#include "KestovaRecordings/recordingcounts.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <utility>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/packagecontents.h"
#include "KestovaStorage/datafile.h"
#include "KestovaStorage/datastorageio.h"

namespace recordings
{
namespace
{
constexpr std::size_t cProgressRecords = 1024;

class tCounter
{
public:
    tCounter(const tCountOptions& options, const std::function<bool(const tCountProgress&)>& goOn)
        : m_options(options), m_goOn(goOn)
    {}

    tRecordingCounts run(const std::vector<std::string>& paths);

private:
    void enterFolder(const std::string& folder);
    void countPath(const std::string& path, bool asked);
    std::optional<tFileCounts> countFile(const std::string& path, std::string& error);
    void countRecord(storage::tDataFile& file, std::size_t i, tFileCounts& counts);
    void add(tFileCounts counts);
    bool goesOn(std::size_t i, std::size_t records);

    const tCountOptions& m_options;
    const std::function<bool(const tCountProgress&)>& m_goOn;
    bool m_cancelled = false;
    std::size_t m_file = 0, m_files = 0;
    std::string m_folder;  // of the present file
    std::string m_segment;
    tActivity m_activity;
    tRecordingCounts m_result;
};

tRecordingCounts tCounter::run(const std::vector<std::string>& paths)
{
    tFoundFiles found = findAllRecordings(paths, m_options.suffix);
    m_result.leftOut = std::move(found.leftOut);
    m_files = found.files.size();
    for (m_file = 1; m_file <= m_files && !m_cancelled; ++m_file)
    {
        const std::string& one = found.files[m_file - 1];
        if (const auto present = presentForm(one, found.files, m_options.suffix))
            countPath(*present, std::find(paths.begin(), paths.end(), one) != paths.end());
    }
    if (m_result.files.empty() && !m_cancelled)
        throw nothingLeft(m_result.leftOut);
    m_result.total.silences = m_activity.silences();
    m_result.complete = !m_cancelled;
    return std::move(m_result);
}

void tCounter::countPath(const std::string& path, bool asked)
{
    enterFolder(std::filesystem::path(path).parent_path().string());
    std::string error;
    if (auto counts = countFile(path, error))
        add(std::move(*counts));
    else
        m_result.leftOut.push_back(leftOut(path, error, asked));
}

// The time between two recordings is no gap.
void tCounter::enterFolder(const std::string& folder)
{
    if (folder == m_folder)
        return;
    for (auto& [key, stream] : m_result.total.streams)
        stream.interrupt();
    m_folder = folder;
}

std::optional<tFileCounts> tCounter::countFile(const std::string& path, std::string& error)
{
    storage::tDataFile file;
    if (!file.open(path, &error))
        return std::nullopt;
    tFileCounts counts;
    counts.path = path;
    counts.kind = file.kind();
    counts.finished = file.finished();
    counts.size = file.size();
    counts.diskSize = sizeOnDisk(path);
    counts.records = file.recordCount();
    counts.bytes = file.payloadBytes();
    counts.damaged = file.damagedCount();
    counts.readable = counts.records == 0 || isReadable(file) || !file.isCompressed();
    for (std::size_t i = 0; i < file.recordCount() && goesOn(i, file.recordCount()); ++i)
        countRecord(file, i, counts);
    return counts;
}

bool tCounter::goesOn(std::size_t i, std::size_t records)
{
    if (i % cProgressRecords == 0)
        m_cancelled = !m_goOn({m_file, m_files, i, records});
    return !m_cancelled;
}

void tCounter::countRecord(storage::tDataFile& file, std::size_t i, tFileCounts& counts)
{
    const std::uint64_t timeMs = file.record(i).timeMs;
    counts.firstMs = counts.firstMs == 0 ? timeMs : std::min(counts.firstMs, timeMs);
    counts.lastMs = std::max(counts.lastMs, timeMs);
    m_activity.add(timeMs);
    if (!counts.readable)
        return;
    if (!file.read(i, m_segment))
    {
        ++counts.damaged;
        return;
    }
    const auto package = viewPackage(m_segment);
    const tStreamKey key =
        package ? tStreamKey::of(package->info.rwType, package->ip, package->port) : tStreamKey::raw();
    const std::string_view message = package ? package->payload : std::string_view(m_segment);
    counts.streams[key].add(timeMs, message, m_options.gapMs, m_options.withDigest);
    m_result.total.streams[key].add(timeMs, message, m_options.gapMs, m_options.withDigest);
}

void tCounter::add(tFileCounts counts)
{
    tTotalCounts& total = m_result.total;
    total.size += counts.size;
    total.diskSize += counts.diskSize;
    total.records += counts.records;
    total.bytes += counts.bytes;
    total.damaged += counts.damaged;
    if (counts.records > 0)
        total.firstMs = total.firstMs == 0 ? counts.firstMs : std::min(total.firstMs, counts.firstMs);
    total.lastMs = std::max(total.lastMs, counts.lastMs);
    m_result.files.push_back(std::move(counts));
}
}  // namespace

tRecordingCounts countRecordings(const std::vector<std::string>& paths, const tCountOptions& options,
                                 const std::function<bool(const tCountProgress&)>& goOn)
{
    return tCounter(options, goOn).run(paths);
}
}  // namespace recordings
