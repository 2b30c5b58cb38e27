#include "KestovaRecordings/recordingcounts.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string_view>
#include <utility>

#include "KestovaRecordings/failure.h"
#include "KestovaStorage/datafile.h"
#include "KestovaStorage/datastorageio.h"
#include "KestovaStorage/packageview.h"

namespace recordings
{
namespace
{
constexpr std::size_t cProgressRecords = 1024;
constexpr std::size_t cLongSegment = 4096;  // tDataFile::readPart() is faster from here on

// A record's stream and message, without the message's bytes unless they were read.
struct tMessage
{
    std::size_t size;
    bool package = false;
    tReadWriteType kind = eOtherType;
    std::uint16_t port = 0;
    std::uint32_t ip = 0;
    std::string_view bytes{};

    bool sameStream(const tMessage& other) const
    {
        return package == other.package && kind == other.kind && port == other.port && ip == other.ip;
    }
    tStreamKey stream() const { return package ? tStreamKey::of(kind, ip, port) : tStreamKey::raw(); }
};

tMessage messageOf(const tRadarMsgPackage& package)
{
    return {package.msgLen, true, package.msgInfo.rwType, package.udpPort, package.udpAddr};
}

tMessage messageIn(const char* segment, std::size_t len)
{
    const tRadarMsgPackage* const package = asWholePackage(segment, len);
    if (package == nullptr)
        return {.size = len, .bytes = {segment, len}};
    tMessage message = messageOf(*package);
    message.bytes = {segment + cPackageHeadSize, message.size};
    return message;
}

// Of a segment of `len` bytes, with its beginning and its end.
tMessage messageBetween(const char* head, const char* end, std::size_t len)
{
    const auto* const package = reinterpret_cast<const tRadarMsgPackage*>(head);
    const bool whole = len == packageSize(package->msgLen) &&
                       std::memcmp(head, cPackageHeadMark, cPackageMarkSize) == 0 &&
                       std::memcmp(end, cPackageEndMark, cPackageMarkSize) == 0;
    return whole ? messageOf(*package) : tMessage{.size = len};
}

// The histories of the streams of the present file, found by the stream of a message.
class tStreamsAtHand
{
public:
    struct tHistories
    {
        tMessage stream{};
        tStreamHistory* ofFile = nullptr;
        tStreamHistory* ofTotal = nullptr;
    };
    void clear() { m_streams = {}; }
    tHistories& of(const tMessage& message, tStreamHistories& file, tStreamHistories& total)
    {
        tHistories& found = m_streams[(message.kind ^ message.port ^ message.ip >> 24) % cPlaces];
        if (found.ofFile == nullptr || !found.stream.sameStream(message))
            found = {message, &file[message.stream()], &total[message.stream()]};
        return found;
    }

private:
    static constexpr std::size_t cPlaces = 16;
    std::array<tHistories, cPlaces> m_streams;
};

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
    std::optional<tMessage> read(storage::tDataFile& file, std::size_t i, std::size_t len) const;
    void add(const tMessage& message, std::uint64_t timeMs, tFileCounts& counts);
    void add(tFileCounts counts);
    bool goesOn(std::size_t i, std::size_t records);

    const tCountOptions& m_options;
    const std::function<bool(const tCountProgress&)>& m_goOn;
    bool m_cancelled = false;
    std::size_t m_file = 0, m_files = 0;
    std::string m_folder;  // of the present file
    tActivity m_activity;
    tStreamsAtHand m_streams;
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
    m_streams.clear();
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
    if (const auto message = read(file, i, record.len))
        add(*message, record.timeMs, counts);
    else
        ++counts.damaged;
}

// Reads no more of a long segment than head and end of its package, unless a digest is wanted.
std::optional<tMessage> tCounter::read(storage::tDataFile& file, std::size_t i, std::size_t len) const
{
    if (len < cLongSegment || m_options.withDigest || file.isCompressed())
    {
        const char* const segment = file.view(i, len);
        return segment != nullptr ? std::optional(messageIn(segment, len)) : std::nullopt;
    }
    char head[cPackageHeadSize], end[cPackageMarkSize];
    if (!file.readPart(i, 0, sizeof head, head) || !file.readPart(i, len - sizeof end, sizeof end, end))
        return std::nullopt;
    return messageBetween(head, end, len);
}

void tCounter::add(const tMessage& message, std::uint64_t timeMs, tFileCounts& counts)
{
    const auto& [same, ofFile, ofTotal] = m_streams.of(message, counts.streams, m_result.total.streams);
    for (tStreamHistory* const stream : {ofFile, ofTotal})
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
