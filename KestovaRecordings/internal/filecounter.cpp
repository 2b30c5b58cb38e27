#include "KestovaRecordings/internal/filecounter.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <utility>

#include "KestovaRecordings/internal/fileglance.h"
#include "KestovaRecordings/internal/persecond.h"
#include "KestovaRecordings/internal/sheetcounts.h"
#include "KestovaStorage/datafile.h"
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

// What is counted of one stream.
struct tStreamAtHand
{
    tMessage stream{};
    tStreamHistory* history = nullptr;
    tPerSecond* perSecond = nullptr;
    tDigest* digest = nullptr;  // over several files
};

// Finds the streams of the file by a message.
class tStreamsAtHand
{
public:
    tStreamsAtHand(const tFileCountOptions& options, tFileCounts& counts) : m_options(options), m_counts(counts) {}

    const tStreamAtHand& of(const tMessage& message)
    {
        tStreamAtHand& found = m_streams[(message.kind * 5u + message.port + (message.ip >> 24) * 3u) % cPlaces];
        if (found.history == nullptr || !found.stream.sameStream(message))
            found = look(message);
        return found;
    }

private:
    tStreamAtHand look(const tMessage& message)
    {
        const tStreamKey key = message.stream();
        return {message, &m_counts.streams[key], m_options.perSecond ? &m_counts.perSecond[key] : nullptr,
                m_options.digests != nullptr ? &(*m_options.digests)[key] : nullptr};
    }

    // Kinds, ports and addresses of a radar often count up together.
    static constexpr std::size_t cPlaces = 64;
    const tFileCountOptions& m_options;
    tFileCounts& m_counts;
    std::array<tStreamAtHand, cPlaces> m_streams;
};

class tCounter
{
public:
    tCounter(const tFileCountOptions& options, storage::tDataFile& file, tCountedFile& counted,
             const std::function<bool(std::size_t, std::size_t)>& goOn)
        : m_options(options), m_file(file), m_counts(counted.counts), m_activity(counted.activity), m_goOn(goOn),
          m_streams(options, m_counts)
    {}

    void run()
    {
        m_counts.records = m_file.recordCount();
        m_counts.bytes = m_file.payloadBytes();
        m_counts.damaged = m_file.damagedCount();
        m_counts.readable = m_counts.records == 0 || isReadable(m_file) || !m_file.isCompressed();
        for (std::size_t i = 0; i < m_counts.records && m_goOn(i, m_counts.records); i += cProgressRecords)
            countRecords(i, std::min<std::size_t>(i + cProgressRecords, m_counts.records));
        for (auto& [key, seconds] : m_counts.perSecond)
            putInOrder(seconds);
        if (m_options.wire != nullptr)
            m_counts.missingOnWire = m_options.wire->missing();
    }

private:
    void countRecords(std::size_t i, std::size_t end)
    {
        while (i < end)
        {
            const std::size_t most = m_counts.readable ? std::min(end - i, m_run.size()) : 0;
            const std::size_t read = m_file.readRun(i, most, m_run.data());
            for (std::size_t k = 0; k < read; ++k)
            {
                takeTime(m_run[k].timeMs);
                lookForLoss({m_run[k].bytes, m_run[k].len});
                add(messageIn(m_run[k].bytes, m_run[k].len), m_run[k].timeMs);
            }
            i += read;
            if (read == 0)
                countRecord(i++);
        }
    }

    void countRecord(std::size_t i)
    {
        const storage::tDataFileRecord record = m_file.record(i);
        takeTime(record.timeMs);
        if (!m_counts.readable)
            return;
        if (const auto message = read(i, record.len))
            add(*message, record.timeMs);
        else
            ++m_counts.damaged;
    }

    void takeTime(std::uint64_t timeMs)
    {
        if (timeMs == m_lastTime)
            return;
        m_lastTime = timeMs;
        m_counts.firstMs = m_counts.firstMs == 0 ? timeMs : std::min(m_counts.firstMs, timeMs);
        m_counts.lastMs = std::max(m_counts.lastMs, timeMs);
        m_activity.add(timeMs);
    }

    // Reads no more of a long segment than head and end of its package, unless a digest is wanted.
    std::optional<tMessage> read(std::size_t i, std::size_t len)
    {
        if (len < cLongSegment || m_options.withDigest || m_options.wire != nullptr || m_file.isCompressed())
        {
            const char* const segment = m_file.view(i, len);
            lookForLoss({segment, segment != nullptr ? len : 0});
            return segment != nullptr ? std::optional(messageIn(segment, len)) : std::nullopt;
        }
        char head[cPackageHeadSize], end[cPackageMarkSize];
        if (!m_file.readPart(i, 0, sizeof head, head) || !m_file.readPart(i, len - sizeof end, sizeof end, end))
            return std::nullopt;
        return messageBetween(head, end, len);
    }

    void lookForLoss(std::string_view segment)
    {
        if (m_options.wire != nullptr)
            m_options.wire->add(segment);
    }

    void add(const tMessage& message, std::uint64_t timeMs)
    {
        const tStreamAtHand& stream = m_streams.of(message);
        if (m_options.withDigest)
            stream.history->add(timeMs, message.bytes, m_options.gapMs, true);
        else
            stream.history->count(timeMs, message.size, m_options.gapMs);
        if (stream.digest != nullptr)
            stream.digest->add(message.bytes);
        if (stream.perSecond != nullptr)
            countSecond(*stream.perSecond, timeMs / 1000);
    }

    const tFileCountOptions& m_options;
    storage::tDataFile& m_file;
    tFileCounts& m_counts;
    tActivity& m_activity;
    const std::function<bool(std::size_t, std::size_t)>& m_goOn;
    tStreamsAtHand m_streams;
    std::uint64_t m_lastTime = 0;  // no record has it
    std::array<storage::tDataFileSegment, 128> m_run;
};

// Returns whether the sheet has all that is wanted of a file that is as it says.
bool isEnough(const tFoundSheet& found, const tFileCountOptions& options, const std::optional<tFileGlance>& seen)
{
    const tSheet& sheet = found.sheet;
    return found && options.fromSheet && !sheet.notesOnly && sheet.finished && options.gapMs >= cSheetGapMs && seen &&
           seen->state == eRecordingState::eFinished && seen->records == sheet.records;
}

void attachSheet(tFoundSheet& found, const tFileCountOptions& options, tFileCounts& counts)
{
    counts.sheetIgnored = std::move(found.reason);
    if (!found)
        return;
    for (const tSheetStream& stream : found.sheet.streams)
        if (stream.missingOnWire && options.wire == nullptr)
            counts.missingOnWire[stream.key] = *stream.missingOnWire;
    found.sheet.streams.clear();
    found.sheet.blocks = {};
    counts.sheet = std::move(found.sheet);
}

// Returns false, and sets `error`, if a compressed file cannot be opened: the sheet does not say how long its codes
// are.
bool takeSheet(const tFoundSheet& found, const tFileGlance& seen, const tFileCountOptions& options, tCountedFile& to,
               std::string& error)
{
    countFromSheet(found.sheet, options, to);
    tFileCounts& counts = to.counts;
    counts.bySheet = counts.finished = true;
    counts.kind = seen.form;
    counts.size = seen.size;
    if (seen.form == storage::cDataFileHead)
        return true;
    storage::tDataFile file;
    const bool isOpen = file.open(counts.path, &error);
    counts.bytes = file.payloadBytes();
    return isOpen;
}
}  // namespace

std::optional<tCountedFile> countFile(const std::string& path, const tFileCountOptions& options, std::string& error,
                                      const std::function<bool(std::size_t, std::size_t)>& goOn)
{
    tCountedFile counted;
    tFileCounts& counts = counted.counts;
    counts.path = path;
    std::string ignored;
    const auto seen = glanceAt(AT_FDCWD, path.c_str(), ignored);
    tFoundSheet found = seen ? readSheet(path) : tFoundSheet();
    if (options.wire != nullptr)
        options.wire->startAnew();
    storage::tDataFile file;
    if (isEnough(found, options, seen))
    {
        if (!takeSheet(found, *seen, options, counted, error))
            return std::nullopt;
    }
    else
    {
        if (!file.open(path, &error))
            return std::nullopt;
        counts.kind = file.kind();
        counts.finished = file.finished();
        counts.size = file.size();
        tCounter(options, file, counted, goOn).run();
    }
    counts.diskSize = seen ? seen->sizeOnDisk : sizeOnDisk(path);
    attachSheet(found, options, counts);
    return counted;
}
}  // namespace recordings
