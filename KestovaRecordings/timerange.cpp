#include "KestovaRecordings/timerange.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <fcntl.h>
#include <optional>

#include "KestovaRecordings/archive.h"
#include "KestovaRecordings/internal/fileglance.h"
#include "KestovaRecordings/sheet.h"
#include "KestovaStorage/packageview.h"

namespace recordings
{
namespace
{
std::optional<tReadWriteType> kindOf(storage::tDataFile& file, std::size_t record)
{
    std::array<char, cPackageHeadSize> head;
    if (!file.readPart(record, 0, head.size(), head.data()) ||
        std::memcmp(head.data(), cPackageHeadMark, cPackageMarkSize) != 0)
        return std::nullopt;
    return reinterpret_cast<const tRadarMsgPackage*>(head.data())->msgInfo.rwType;
}

struct tSpan
{
    std::uint64_t firstMs, lastMs;
};

// From every record of the file.
std::optional<tSpan> readSpan(const std::string& path)
{
    storage::tDataFile file;
    if (!file.open(path) || file.recordCount() == 0)
        return std::nullopt;
    tSpan span{file.record(0).timeMs, file.record(0).timeMs};
    for (std::size_t i = 1; i < file.recordCount(); ++i)
    {
        const std::uint64_t time = file.record(i).timeMs;
        span = {std::min(span.firstMs, time), std::max(span.lastMs, time)};
    }
    return span;
}

// The clock may have been set back between the first and the last record: the sheet knows.
std::optional<tSpan> spanOf(const std::string& path)
{
    std::string why;
    const auto glance = glanceAt(AT_FDCWD, path.c_str(), why);
    if (!glance || glance->records == 0)
        return std::nullopt;
    if (glance->state == eRecordingState::eDamaged || glance->firstMs == 0)
        return readSpan(path);
    tSpan span{glance->firstMs, glance->lastMs};
    const tSheetSummary sheet = readSheetSummary(path);
    if (sheet && sheet.records != 0)
        span = {std::min(span.firstMs, sheet.firstMs), std::max(span.lastMs, sheet.lastMs)};
    return span;
}
}  // namespace

tTimeRange::tTimeRange(const std::vector<std::string>& files, const std::string& suffix)
    : m_file(std::make_unique<storage::tDataFile>())
{
    for (const std::string& name : files)
    {
        const auto path = presentForm(name, files, suffix);
        const auto span = path ? spanOf(*path) : std::nullopt;
        if (!span)
            continue;
        m_firstMs = m_parts.empty() ? span->firstMs : std::min(m_firstMs, span->firstMs);
        m_lastMs = std::max(m_lastMs, span->lastMs);
        m_parts.push_back({*path, span->firstMs, span->lastMs});
    }
    std::stable_sort(m_parts.begin(), m_parts.end(),
                     [](const tPart& a, const tPart& b) { return a.firstMs < b.firstMs; });
}

tTimeRange::~tTimeRange() = default;

std::string tTimeRange::fileAt(std::uint64_t ms) const
{
    std::string file;
    for (const tPart& part : m_parts)
        file = part.firstMs <= ms || file.empty() ? part.path : file;
    return file;
}

// The file that was opened last is mostly asked for again.
bool tTimeRange::open(const tPart& part) const
{
    return m_file->path() == part.path || m_file->open(part.path);
}

bool tTimeRange::forEachPackage(std::uint64_t fromMs, std::uint64_t toMs, const tWants& wants,
                                const tVisit& visit) const
{
    return std::all_of(m_parts.begin(), m_parts.end(), [&](const tPart& part) {
        return part.firstMs > toMs || part.lastMs < fromMs || !open(part) || visitFile(fromMs, toMs, wants, visit);
    });
}

bool tTimeRange::visitFile(std::uint64_t fromMs, std::uint64_t toMs, const tWants& wants, const tVisit& visit) const
{
    storage::tDataFile& file = *m_file;
    for (std::size_t i = 0; i < file.recordCount(); ++i)
    {
        const std::uint64_t time = file.record(i).timeMs;
        if (time < fromMs || time > toMs)
            continue;
        const auto kind = kindOf(file, i);
        std::size_t size = 0;
        const char* const bytes = kind && wants(*kind) ? file.view(i, size) : nullptr;
        const auto package = bytes != nullptr ? viewPackage({bytes, size}) : std::nullopt;
        if (package && !visit(time, *package))
            return false;
    }
    return true;
}
}  // namespace recordings
