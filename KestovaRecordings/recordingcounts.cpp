#include "KestovaRecordings/recordingcounts.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string_view>
#include <utility>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/packagecontents.h"
#include "KestovaStorage/datafile.h"
#include "KestovaStorage/datastorageio.h"
#include "KestovaStorage/packageview.h"

namespace recordings
{
namespace
{
constexpr std::size_t cProgressRecords = 1024;

// A record's stream and message, without the message's bytes unless they are wanted.
struct tMessage
{
    tStreamKey stream;
    std::size_t size;
    std::string_view bytes{};
};

// Returns the head of the package that a segment of `len` bytes is, if these are its beginning and its end.
const tRadarMsgPackage* asPackageEnds(const char* head, const char* end, std::size_t len)
{
    const auto* const package = reinterpret_cast<const tRadarMsgPackage*>(head);
    return len == packageSize(package->msgLen) && std::memcmp(head, cPackageHeadMark, cPackageMarkSize) == 0 &&
                   std::memcmp(end, cPackageEndMark, cPackageMarkSize) == 0
               ? package
               : nullptr;
}

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
    std::optional<tMessage> messageOf(storage::tDataFile& file, std::size_t i, std::size_t len) const;
    std::optional<tMessage> wholeMessageOf(storage::tDataFile& file, std::size_t i) const;
    void add(const tMessage& message, std::uint64_t timeMs, tFileCounts& counts);
    void add(tFileCounts counts);
    bool goesOn(std::size_t i, std::size_t records);

    const tCountOptions& m_options;
    const std::function<bool(const tCountProgress&)>& m_goOn;
    bool m_cancelled = false;
    std::size_t m_file = 0, m_files = 0;
    std::string m_folder;  // of the present file
    tActivity m_activity;
    struct
    {
        tStreamKey key;
        tStreamHistory* ofFile = nullptr;
        tStreamHistory* ofTotal = nullptr;
    } m_stream;  // of the message before, in the present file; most messages are of the same one
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
    m_stream.ofFile = nullptr;
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
    const storage::tDataFileRecord record = file.record(i);
    counts.firstMs = counts.firstMs == 0 ? record.timeMs : std::min(counts.firstMs, record.timeMs);
    counts.lastMs = std::max(counts.lastMs, record.timeMs);
    m_activity.add(record.timeMs);
    if (!counts.readable)
        return;
    const bool endsAreEnough = !m_options.withDigest && !file.isCompressed();
    const auto message = endsAreEnough ? messageOf(file, i, record.len) : wholeMessageOf(file, i);
    if (message)
        add(*message, record.timeMs, counts);
    else
        ++counts.damaged;
}

// Reads no more of a segment than head and end of its package.
std::optional<tMessage> tCounter::messageOf(storage::tDataFile& file, std::size_t i, std::size_t len) const
{
    char head[cPackageHeadSize], end[cPackageMarkSize];
    if (len < cPackageOverhead)
        return wholeMessageOf(file, i);
    if (!file.readPart(i, 0, sizeof head, head) || !file.readPart(i, len - sizeof end, sizeof end, end))
        return std::nullopt;
    if (const tRadarMsgPackage* const package = asPackageEnds(head, end, len))
        return tMessage{tStreamKey::of(package->msgInfo.rwType, package->udpAddr, package->udpPort), package->msgLen};
    return tMessage{tStreamKey::raw(), len};
}

std::optional<tMessage> tCounter::wholeMessageOf(storage::tDataFile& file, std::size_t i) const
{
    std::size_t len = 0;
    const char* const bytes = file.view(i, len);
    if (bytes == nullptr)
        return std::nullopt;
    const std::string_view segment(bytes, len);
    if (const auto package = viewPackage(segment))
        return tMessage{tStreamKey::of(package->info.rwType, package->ip, package->port), package->payload.size(),
                        package->payload};
    return tMessage{tStreamKey::raw(), len, segment};
}

void tCounter::add(const tMessage& message, std::uint64_t timeMs, tFileCounts& counts)
{
    if (m_stream.ofFile == nullptr || !(m_stream.key == message.stream))
        m_stream = {message.stream, &counts.streams[message.stream], &m_result.total.streams[message.stream]};
    for (tStreamHistory* const stream : {m_stream.ofFile, m_stream.ofTotal})
    {
        if (m_options.withDigest)
            stream->add(timeMs, message.bytes, m_options.gapMs, true);
        else
            stream->count(timeMs, message.size, m_options.gapMs);
    }
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
