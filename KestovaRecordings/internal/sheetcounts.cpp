#include "KestovaRecordings/internal/sheetcounts.h"

#include <algorithm>

namespace recordings
{
namespace
{
constexpr std::uint64_t cSilenceSeconds = cSilenceMs / 1000;

// The silence between the last message of one second and the first of a later one: as the sheet has it, or the shortest
// that is possible.
tGap silenceBetween(std::uint64_t second, std::uint64_t later, const tSheetStream& stream,
                    const std::vector<tGap>& silences)
{
    const auto isIt = [=](const tGap& gap) { return gap.fromMs / 1000 == second && gap.toMs / 1000 == later; };
    const auto listed = std::find_if(stream.gaps.begin(), stream.gaps.end(), isIt);
    if (listed != stream.gaps.end())
        return *listed;
    tGap gap{second * 1000 + 999, later * 1000};
    for (const tGap& silence : silences)
    {
        if (silence.fromMs / 1000 < second || silence.toMs / 1000 > later)
            continue;
        gap.fromMs = std::min(gap.fromMs, silence.fromMs);
        gap.toMs = std::max(gap.toMs, silence.toMs);
    }
    return gap;
}

std::vector<tGap> stretchesOf(const tSheetStream& stream, const std::vector<tGap>& silences)
{
    std::vector<tGap> stretches;
    std::uint64_t fromMs = stream.firstMs;
    for (std::size_t i = 1; i < stream.perSecond.size(); ++i)
    {
        const std::uint64_t second = stream.perSecond[i - 1].first, later = stream.perSecond[i].first;
        if (later - second < cSilenceSeconds)
            continue;
        const tGap gap = silenceBetween(second, later, stream, silences);
        if (gap.length() <= cSilenceMs)
            continue;
        stretches.push_back({fromMs, gap.fromMs});
        fromMs = gap.toMs;
    }
    stretches.push_back({fromMs, stream.lastMs});
    return stretches;
}

tStreamHistory recall(const tSheetStream& stream, const std::vector<tGap>& silences, std::uint64_t gapMs)
{
    tStreamRecollection known{stream.messages, stream.bytes, stream.firstMs, stream.lastMs, stream.digest, {}, {}};
    std::copy_if(stream.gaps.begin(), stream.gaps.end(), std::back_inserter(known.gaps),
                 [gapMs](const tGap& gap) { return gap.length() >= gapMs; });
    known.stretches = stretchesOf(stream, silences);
    return tStreamHistory(known);
}
}  // namespace

void countFromSheet(const tSheet& sheet, const tFileCountOptions& options, tCountedFile& to)
{
    tFileCounts& counts = to.counts;
    counts.records = sheet.records;
    counts.bytes = sheet.bytes;
    counts.firstMs = sheet.firstMs;
    counts.lastMs = sheet.lastMs;
    for (const tSheetStream& stream : sheet.streams)
    {
        counts.streams.emplace(stream.key, recall(stream, sheet.silences, options.gapMs));
        if (options.perSecond)
            counts.perSecond.emplace(stream.key, stream.perSecond);
    }
    if (sheet.records == 0)
        return;
    std::uint64_t fromMs = sheet.firstMs;
    for (const tGap& silence : sheet.silences)
    {
        to.activity.add(tGap{fromMs, silence.fromMs});
        fromMs = silence.toMs;
    }
    to.activity.add(tGap{fromMs, sheet.lastMs});
}
}  // namespace recordings
