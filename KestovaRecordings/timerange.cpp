#include "KestovaRecordings/timerange.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>

#include "KestovaRecordings/archive.h"
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
}  // namespace

tTimeRange::tTimeRange(const std::vector<std::string>& files, const std::string& suffix)
{
    storage::tDataFile file;
    for (const std::string& name : files)
    {
        const auto path = presentForm(name, files, suffix);
        if (!path || !file.open(*path) || file.recordCount() == 0)
            continue;
        tPart part{*path, file.record(0).timeMs, file.record(0).timeMs};
        for (std::size_t i = 1; i < file.recordCount(); ++i)  // the clock may have been set back meanwhile
        {
            const std::uint64_t time = file.record(i).timeMs;
            part.firstMs = std::min(part.firstMs, time);
            part.lastMs = std::max(part.lastMs, time);
        }
        m_firstMs = m_parts.empty() ? part.firstMs : std::min(m_firstMs, part.firstMs);
        m_lastMs = std::max(m_lastMs, part.lastMs);
        m_parts.push_back(std::move(part));
    }
    std::stable_sort(m_parts.begin(), m_parts.end(),
                     [](const tPart& a, const tPart& b) { return a.firstMs < b.firstMs; });
}

void tTimeRange::forEachPackage(std::uint64_t fromMs, std::uint64_t toMs, const tWants& wants,
                                const tVisit& visit) const
{
    for (const tPart& part : m_parts)
    {
        storage::tDataFile file;
        if (part.firstMs > toMs || part.lastMs < fromMs || !file.open(part.path))
            continue;
        for (std::size_t i = 0; i < file.recordCount(); ++i)
        {
            const std::uint64_t time = file.record(i).timeMs;
            if (time < fromMs || time > toMs)
                continue;
            const auto kind = kindOf(file, i);
            std::size_t size = 0;
            const char* const bytes = kind && wants(*kind) ? file.view(i, size) : nullptr;
            const auto package = bytes != nullptr ? viewPackage({bytes, size}) : std::nullopt;
            if (package)
                visit(time, *package);
        }
    }
}
}  // namespace recordings
