#include "KestovaRecordings/internal/sourcesheets.h"

#include <algorithm>
#include <utility>

namespace recordings
{
namespace
{
void addTo(std::optional<std::uint64_t>& sum, const std::optional<std::uint64_t>& more)
{
    if (more)
        sum = sum.value_or(0) + *more;
}

class tSources
{
public:
    explicit tSources(const tSourceSpan& span) : m_span(span) {}

    void add(const tInputFile& file);
    tSheet take() { return std::move(m_sheet); }

private:
    void agree(const tSheet& source);
    void addTimes(const tSheet& source);
    void addLosses(const tSheet& source);
    bool includes(std::uint64_t timeMs) const { return timeMs >= m_span.fromMs && timeMs < m_span.toMs; }
    std::uint64_t moved(std::uint64_t timeMs) const { return timeMs + m_shift; }

    const tSourceSpan& m_span;
    tSheet m_sheet;
    bool m_any = false;
    std::uint64_t m_shift = 0;  // of the present file, modulo 2^64
};

void tSources::add(const tInputFile& file)
{
    if (file.lastMs < m_span.fromMs || file.firstMs >= m_span.toMs)
        return;
    const tFoundSheet found = readSheet(file.path);
    if (!found)
        return;
    m_shift = m_span.shiftMs ? static_cast<std::uint64_t>(m_span.shiftMs(file)) : 0;
    if (!found.sheet.notesOnly)
    {
        agree(found.sheet);
        if (includes(file.firstMs) && includes(file.lastMs))
            addLosses(found.sheet);
    }
    addTimes(found.sheet);
}

void tSources::agree(const tSheet& source)
{
    if (!std::exchange(m_any, true))
    {
        m_sheet.recorderVersion = source.recorderVersion;
        m_sheet.recorderHost = source.recorderHost;
        m_sheet.radarSerial = source.radarSerial;
        m_sheet.radarId = source.radarId;
        m_sheet.radarAddresses = source.radarAddresses;
        m_sheet.spokeLayout = source.spokeLayout;
        m_sheet.interface = source.interface;
        m_sheet.clock = source.clock;
        m_sheet.clock.steps.clear();
        return;
    }
    if (m_sheet.recorderVersion != source.recorderVersion)
        m_sheet.recorderVersion.clear();
    if (m_sheet.recorderHost != source.recorderHost)
        m_sheet.recorderHost.clear();
    if (m_sheet.interface != source.interface)
        m_sheet.interface.clear();
    if (m_sheet.clock.source != source.clock.source)
        m_sheet.clock.source.clear();
    if (m_sheet.clock.offsetMs != source.clock.offsetMs || m_sheet.clock.driftPpm != source.clock.driftPpm)
        m_sheet.clock.offsetMs = m_sheet.clock.driftPpm = std::nullopt;
    if (m_sheet.spokeLayout != source.spokeLayout)
        m_sheet.spokeLayout.clear();
    if (m_sheet.radarSerial == source.radarSerial && m_sheet.radarId == source.radarId)
        return;
    m_sheet.radarSerial.clear();
    m_sheet.radarId = 0;
    m_sheet.radarAddresses.clear();
}

void tSources::addTimes(const tSheet& source)
{
    for (const tNote& note : source.notes)
        if (includes(note.timeMs))
            m_sheet.notes.push_back({moved(note.timeMs), note.text});
    for (const tClockStep& step : source.clock.steps)
        if (includes(step.atMs))
            m_sheet.clock.steps.push_back({moved(step.atMs), step.stepMs});
    for (const tLostJoin& lost : source.losses.joinsLost)
    {
        const std::uint64_t from = std::max(lost.fromMs, m_span.fromMs), to = std::min(lost.toMs, m_span.toMs);
        if (from < to)
            m_sheet.losses.joinsLost.push_back({lost.address, moved(from), moved(to)});
    }
}

void tSources::addLosses(const tSheet& source)
{
    m_sheet.losses.kernelDropped += source.losses.kernelDropped;
    m_sheet.losses.queueLost += source.losses.queueLost;
    m_sheet.losses.diskLost += source.losses.diskLost;
    addTo(m_sheet.losses.missingOnWire, source.losses.missingOnWire);
    for (const tSheetStream& stream : source.streams)
    {
        if (stream.kernelDropped == 0 && !stream.missingOnWire)
            continue;
        const auto known = std::find_if(m_sheet.streams.begin(), m_sheet.streams.end(),
                                        [&](const tSheetStream& each) { return each.key == stream.key; });
        tSheetStream& row = known != m_sheet.streams.end() ? *known : m_sheet.streams.emplace_back();
        row.key = stream.key;
        row.kernelDropped += stream.kernelDropped;
        addTo(row.missingOnWire, stream.missingOnWire);
    }
}
}  // namespace

tSheet sheetFrom(const tInputFiles& inputs, const tSourceSpan& span)
{
    tSources sources(span);
    for (const tInputFile& file : inputs.files)
        sources.add(file);
    tSheet sheet = sources.take();
    sheet.cut = true;
    return sheet;
}

std::vector<tNote> notesBetween(const std::vector<tNote>& notes, std::uint64_t fromMs, std::uint64_t toMs)
{
    std::vector<tNote> chosen;
    std::copy_if(notes.begin(), notes.end(), std::back_inserter(chosen),
                 [=](const tNote& note) { return note.timeMs >= fromMs && note.timeMs < toMs; });
    return chosen;
}

bool coversFile(const tFoundSheet& found, std::uint64_t records)
{
    return found && !found.sheet.notesOnly && found.sheet.finished && found.sheet.records == records;
}
}  // namespace recordings
