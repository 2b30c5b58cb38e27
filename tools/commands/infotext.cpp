#include <algorithm>
#include <fmt/format.h>

#include "tools/commands/inforeport.h"
#include "tools/shell/names.h"
#include "tools/shell/places.h"
#include "tools/shell/units.h"

namespace tool
{
using namespace recordings;

namespace
{
std::string sizesText(std::uint64_t size, std::uint64_t onDisk)
{
    return fmt::format("{}, {} on disk", sizeText(size), sizeText(onDisk));
}

std::string lossesText(const tSheetLosses& losses)
{
    if (losses.sum() == 0)
        return "nothing lost";
    return fmt::format("kernel dropped {}, queue lost {}, disk lost {}, joins lost {}", losses.kernelDropped,
                       losses.queueLost, losses.diskLost, losses.joinsLost.size());
}

// Begins with a comma.
std::string missingText(const tMissingCounts& missing)
{
    const auto sum = total(missing);
    return sum ? fmt::format(", missing on the wire {}", *sum) : "";
}

std::string clockText(const tSheetClock& clock)
{
    std::string text;
    if (clock.offsetMs)
        text += fmt::format(", clock {:+.0f} ms against GPS", *clock.offsetMs);
    if (clock.driftPpm)
        text += fmt::format(", drift {:+.1f} ppm", *clock.driftPpm);
    for (const tClockStep& step : clock.steps)
        text += fmt::format(", clock set by {:+} ms at {}", step.stepMs, timeText(step.atMs));
    return text;
}

// What the sheet of a file says beside its counts.
std::string factsText(const tSheet& sheet, const tMissingCounts& missing)
{
    std::string text;
    if (!sheet.notesOnly)
        text = lossesText(sheet.losses) + missingText(missing) + clockText(sheet.clock);
    else if (!missing.empty())
        text = missingText(missing).substr(2);
    if (sheet.carried != 0)
        text += fmt::format(", {} records carried along", sheet.carried);
    if (sheet.kept)
        text += text.empty() ? "kept" : ", kept";
    text = text.empty() ? "" : "  " + text + '\n';
    for (const tNote& note : sheet.notes)
        text += fmt::format("  note at {}: {}\n", timeText(note.timeMs), printable(note.text));
    return text;
}

std::string fileText(const tFileCounts& file)
{
    std::string text =
        fmt::format("{}\n  {}, {}, {}, {} records", printable(file.path), kindName(file.kind),
                    file.finished ? "finished" : "unfinished", sizesText(file.size, file.diskSize), file.records);
    if (file.damaged > 0)
        text += fmt::format(", {} damaged", file.damaged);
    if (!file.readable)
        text += "; none of them can be read";
    if (file.records > 0)
        text += fmt::format("\n  {} to {} ({})", timeText(file.firstMs), timeText(file.lastMs),
                            durationText(file.lastMs - file.firstMs));
    text += '\n';
    if (file.sheet)
        return text + factsText(*file.sheet, file.missingOnWire);
    return file.missingOnWire.empty() ? text : text + "  " + missingText(file.missingOnWire).substr(2) + '\n';
}

std::string streamsTextOf(const tTotalCounts& total, bool withDigest)
{
    std::string text = fmt::format("\n{:<18}{:<23}{:>10}{:>11}{:>11}{:>13}{}\n", "stream", "address", "records",
                                   "bytes", "records/s", "rate", withDigest ? "  digest" : "");
    for (const auto& [key, stream] : total.streams)
        text += fmt::format("{:<18}{:<23}{:>10}{:>11}{:>11.1f}{:>13}{}\n", key.name(), key.address(), stream.messages(),
                            sizeText(stream.bytes()), stream.messagesPerSecond(total.silences),
                            rateText(stream.bytesPerSecond(total.silences)),
                            withDigest ? "  " + stream.digest().text() : "");
    return text;
}

using tNamedGap = std::pair<tGap, std::string>;

// Returns lines of the longest gaps, the longest first; nothing for none.
std::string gapLines(const char* head, std::vector<tNamedGap> gaps)
{
    constexpr std::size_t cMost = 10;
    if (gaps.empty())
        return "";
    std::stable_sort(gaps.begin(), gaps.end(),
                     [](const tNamedGap& a, const tNamedGap& b) { return a.first.length() > b.first.length(); });
    std::string text = fmt::format("\n{}, the longest first\n", head);
    for (std::size_t i = 0; i < std::min(cMost, gaps.size()); ++i)
        text += fmt::format("{}  from {} to {}  {}\n", durationText(gaps[i].first.length()),
                            timeText(gaps[i].first.fromMs), timeText(gaps[i].first.toMs), gaps[i].second);
    return text;
}

std::string gapsText(const tTotalCounts& total)
{
    std::vector<tNamedGap> everything, single;
    for (const tGap& silence : total.silences)
        everything.emplace_back(silence, "everything");
    for (const auto& [key, stream] : total.streams)
        for (const tGap& gap : stream.gaps(total.silences))
            single.emplace_back(gap, key.name() + " " + key.address());
    const std::string text =
        gapLines("nothing was recorded", std::move(everything)) + gapLines("gaps of streams", std::move(single));
    return text.empty() ? "\nno gaps\n" : text;
}

}  // namespace

std::string infoText(const tRecordingCounts& counts, bool withDigest)
{
    const tTotalCounts& totals = counts.total;
    std::string text;
    for (const tFileCounts& file : counts.files)
        text += fileText(file);
    if (!totals.streams.empty())
        text += streamsTextOf(totals, withDigest) + gapsText(totals);
    text += fmt::format("\ntotal: {} data files, {}, {} records, {} of payload", counts.files.size(),
                        sizesText(totals.size, totals.diskSize), totals.records, sizeText(totals.bytes));
    if (totals.damaged > 0)
        text += fmt::format(", {} damaged records", totals.damaged);
    if (totals.losses.sum() > 0)
        text += "; " + lossesText(totals.losses);
    text += missingText(totals.missingOnWire);
    if (!counts.leftOut.empty())
        text += fmt::format(", {} skipped", counts.leftOut.size());
    return text + '\n';
}
}  // namespace tool
