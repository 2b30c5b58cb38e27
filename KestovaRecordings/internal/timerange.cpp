#include "KestovaRecordings/internal/timerange.h"

#include <algorithm>
#include <array>

#include "KestovaRecordings/archive.h"
#include "KestovaStorage/packageview.h"

namespace recordings
{
namespace
{
// The records of a file within the span, in the order of recording; the clock may have been set back meanwhile.
struct tPart
{
    std::string path;
    std::uint64_t firstMs;
};

bool isWithin(const storage::tDataFileRecord& record, std::uint64_t fromMs, std::uint64_t toMs)
{
    return record.timeMs >= fromMs && record.timeMs <= toMs;
}
}  // namespace

void forEachRecord(const std::vector<std::string>& files, const std::string& suffix, std::uint64_t fromMs,
                   std::uint64_t toMs, const tVisitRecord& visit)
{
    std::vector<tPart> parts;
    storage::tDataFile file;
    for (const std::string& name : files)
    {
        const auto path = presentForm(name, files, suffix);
        if (!path || !file.open(*path))
            continue;
        for (std::size_t i = 0; i < file.recordCount(); ++i)
        {
            if (!isWithin(file.record(i), fromMs, toMs))
                continue;
            parts.push_back({*path, file.record(i).timeMs});
            break;
        }
    }
    std::stable_sort(parts.begin(), parts.end(), [](const tPart& a, const tPart& b) { return a.firstMs < b.firstMs; });
    for (const tPart& part : parts)
    {
        if (!file.open(part.path))
            continue;
        for (std::size_t i = 0; i < file.recordCount(); ++i)
        {
            if (isWithin(file.record(i), fromMs, toMs))
                visit(file, i);
        }
    }
}

std::optional<tReadWriteType> kindOf(storage::tDataFile& file, std::size_t record)
{
    std::array<char, cPackageHeadSize> head;
    if (!file.readPart(record, 0, head.size(), head.data()) ||
        !std::equal(cPackageHeadMark, cPackageHeadMark + cPackageMarkSize, head.data()))
        return std::nullopt;
    return reinterpret_cast<const tRadarMsgPackage*>(head.data())->msgInfo.rwType;
}
}  // namespace recordings
