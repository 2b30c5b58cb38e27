// Steps of a playback: spoke by spoke, turn by turn, and from mark to mark.
#include <algorithm>
#include <utility>
#include <vector>

#include "KestovaRecordings/packagecontents.h"
#include "server/answers.h"
#include "server/playback.h"

namespace server
{
using namespace recordings;

namespace
{
// A radar that stops is missed by the slowest of its streams first. Of gaps that overlap there is one mark, where the
// last one begins.
std::vector<std::uint64_t> marksOf(std::vector<tGap> gaps)
{
    std::ranges::sort(gaps, {}, &tGap::fromMs);
    std::vector<std::uint64_t> marks;
    std::uint64_t untilMs = 0;
    for (const tGap& gap : gaps)
    {
        const bool overlaps = !marks.empty() && gap.fromMs < untilMs;
        untilMs = overlaps ? std::min(untilMs, gap.toMs) : gap.toMs;
        if (overlaps)
            marks.back() = gap.fromMs;
        else
            marks.push_back(gap.fromMs);
    }
    return marks;
}
}  // namespace

void tPlayback::step(const tViewerMessage& message)
{
    if (m_live)
        shiftTime(m_live->state().lastMs);
    if (m_playing)
        setPlaying(false);
    if (message.unit == tViewerMessage::eNote || message.unit == tViewerMessage::eGap)
    {
        const auto mark = markAt(message);
        if (!mark)
            throw tRefusal(404, "no_mark",
                           message.unit == tViewerMessage::eNote ? "there is no further note"
                                                                 : "there is no further gap");
        jump(*mark);
    }
    else if (message.count > 0)
        stepForward(message);
    else
        jump(placeBefore(message));
    sendState();
}

void tPlayback::stepForward(const tViewerMessage& message)
{
    const double turnsBefore = m_turns, turns = message.count;
    const std::size_t spokesBefore = m_fedSpokes;
    const auto count = static_cast<std::size_t>(message.count);
    const auto isDone = [&](std::size_t records) {
        switch (message.unit)
        {
        case tViewerMessage::eSpoke:
            return m_fedSpokes - spokesBefore >= count;
        case tViewerMessage::eTurn:
            return m_turns - turnsBefore >= turns;
        default:
            return records >= count;
        }
    };
    for (std::size_t records = 0; !isDone(records) && !isOvertaken(); ++records)
    {
        const auto nextMs = m_walk->nextMs();
        if (!nextMs || !feedNext())
            break;
        m_timeMs = std::max(m_timeMs, *nextMs);
        if (m_builder.isFull())
            flush(0);
        if (m_builder.spokes() == 0 && !waitForRoom())
            break;
    }
    flush(0);
    setClock(m_timeMs);
}

std::uint64_t tPlayback::placeBefore(const tViewerMessage& message)
{
    const auto count = static_cast<std::size_t>(-message.count);
    if (message.unit == tViewerMessage::eTurn)
    {
        double covered = 0;
        const std::uint64_t start = turnStart(m_timeMs, static_cast<double>(count), covered);
        return start == m_timeMs && start > 0 ? start - 1 : start;
    }
    // A place is a millisecond: it goes back at least one.
    m_walk->seek(m_timeMs);
    tWalked record;
    std::uint64_t placeMs = m_timeMs;
    for (std::size_t done = 0; done < count && m_walk->previous(record);)
    {
        const auto package = viewPackage(record.bytes);
        const bool isImage =
            package && (package->info.rwType == eImageStream || package->info.rwType == eOriginalImage);
        if (message.unit == tViewerMessage::eSpoke && !isImage)
            continue;
        placeMs = record.timeMs;
        ++done;
    }
    return placeMs;
}

// Notes, and the last record before each gap.
std::optional<std::uint64_t> tPlayback::markAt(const tViewerMessage& message)
{
    std::vector<std::uint64_t> marks;
    std::vector<tGap> gaps;
    for (const tFileFactsPtr& file : m_context.facts.of(m_context.archive.folderOf(m_id)).files)
    {
        if (message.unit == tViewerMessage::eNote)
            for (const tNote& note : file->notes)
                marks.push_back(note.timeMs);
        else
            for (const tStreamFacts& stream : file->streams)
                gaps.insert(gaps.end(), stream.gaps.begin(), stream.gaps.end());
    }
    if (message.unit == tViewerMessage::eGap)
        marks = marksOf(std::move(gaps));
    std::ranges::sort(marks);
    const auto count = static_cast<std::ptrdiff_t>(std::abs(message.count));
    if (message.count > 0)
    {
        const auto at = std::ranges::upper_bound(marks, m_timeMs);
        return marks.end() - at >= count ? std::optional(*(at + count - 1)) : std::nullopt;
    }
    const auto at = std::ranges::lower_bound(marks, m_timeMs);
    return at - marks.begin() >= count ? std::optional(*(at - count)) : std::nullopt;
}
}  // namespace server
