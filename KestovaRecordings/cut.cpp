#include "KestovaRecordings/cut.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <utility>

#include "KestovaRecordings/internal/inputfiles.h"
#include "KestovaRecordings/internal/laststates.h"
#include "KestovaRecordings/internal/recordorder.h"
#include "KestovaRecordings/internal/recordstream.h"
#include "KestovaRecordings/internal/sourcesheets.h"
#include "KestovaRecordings/survey.h"
#include "KestovaStorage/datafileformat.h"
#include "UdpSocket/udpsocket.h"

namespace recordings
{
namespace
{
constexpr std::size_t cRunLimit = 1024;  // records between two looks at `goOn`

struct tCancelled
{};

// A moment between two ms belongs to the later one: records of the earlier one are before it.
std::uint64_t wholeMs(double ms)
{
    return static_cast<std::uint64_t>(std::clamp(std::ceil(ms), 0.0, static_cast<double>(storage::cTimeLimit)));
}

// The streams that are taken, as --streams and --groups choose them.
class tChosenStreams
{
public:
    explicit tChosenStreams(const tCutOptions& options) : m_kinds(options.streams)
    {
        for (const NetAddress& group : options.groups)
        {
            const tStreamKey key = tStreamKey::of(eOtherType, group.ip, net::NtoHs(group.port));
            m_groups.emplace(key.addressOrder, key.port);
        }
    }

    bool includesAll() const { return m_kinds.includesAll() && m_groups.empty(); }
    bool includes(const tStreamKey& key) const
    {
        return includesAll() || (key.package && m_kinds.includes(key.kind) &&
                                 (m_groups.empty() || m_groups.count({key.addressOrder, key.port}) != 0));
    }

private:
    const tStreamChoice m_kinds;
    std::set<std::pair<std::uint32_t, std::uint16_t>> m_groups;
};

class tCut
{
public:
    tCut(const tCutOptions& options, const std::function<bool(double)>& goOn)
        : m_options(options), m_goOn(goOn), m_output(options.folder), m_chosen(options)
    {}

    tCutResult run();

private:
    void findSpan();
    void requireTimes() const;
    void begin();
    void giveNotes(std::uint64_t untilMs);
    void carryStates();
    void takeRecords();
    void take(const tRecordRun& run);
    void takeChosen(const tRecordRun& run);
    void put(storage::tDataFile& file, const tInputFile& input, std::size_t first, std::size_t count);
    void countCarried(const tInputFile& input, std::size_t first, std::size_t count);
    std::size_t countBeforeNextFile(const storage::tDataFile& file, std::size_t first, std::size_t count) const;
    void startNextFileAt(std::uint64_t timeMs);
    [[noreturn]] void refuseEmpty() const;
    void goOn(double fraction) const
    {
        if (!m_goOn(fraction))
            throw tCancelled();
    }

    const tCutOptions& m_options;
    const std::function<bool(double)>& m_goOn;
    tRecordingOutput m_output;
    const tChosenStreams m_chosen;
    tInputFiles m_inputs;
    tSheet m_about;
    std::string m_extName;
    std::uint64_t m_nextFileMs = UINT64_MAX;  // the first time of the next file
    std::uint64_t m_notesFromMs = 0;          // no file has the notes from here on
    std::uint64_t m_taken = 0;                // records of the span
    tCutResult m_result;
};

tCutResult tCut::run()
try
{
    m_inputs = findInputs(m_options.paths, m_options.suffix);
    m_result.leftOut = m_inputs.leftOut;
    findSpan();
    requireTimes();
    begin();
    if (m_options.withState)
        carryStates();
    takeRecords();
    m_result.records = m_output.records();
    m_result.bytes = m_output.bytes();
    if (m_taken == 0)
        refuseEmpty();
    giveNotes(m_result.endMs);
    m_result.files = m_output.commit();
    m_result.complete = true;
    return std::move(m_result);
}
catch (const tCancelled&)
{
    return std::move(m_result);
}

void tCut::findSpan()
{
    const auto resolved = [&](const tMoment& moment) {
        return wholeMs(moment.resolve(m_inputs.firstMs, m_inputs.lastMs));
    };
    m_result.startMs = m_options.start ? std::max(resolved(*m_options.start), m_inputs.firstMs) : m_inputs.firstMs;
    m_result.endMs = m_options.end ? std::min(resolved(*m_options.end), m_inputs.lastMs + 1) : m_inputs.lastMs + 1;
    if (m_result.startMs >= m_result.endMs || m_result.startMs > m_inputs.lastMs)
        refuseEmpty();
}

void tCut::requireTimes() const
{
    const auto first = static_cast<std::int64_t>(m_result.startMs), last = static_cast<std::int64_t>(m_result.endMs);
    constexpr auto cLimit = static_cast<std::int64_t>(storage::cTimeLimit);
    if (m_options.shiftMs <= -first || m_options.shiftMs >= cLimit - last)
        throw tFailure("the shift moves records out of the times that a recording can have");
}

void tCut::refuseEmpty() const
{
    const std::vector<tInputFile>& files = m_inputs.files;
    std::vector<std::string> paths;
    std::transform(files.begin(), files.end(), std::back_inserter(paths),
                   [](const tInputFile& each) { return each.path; });
    requireStreams(paths, m_options.streams);
    throw tNothingToCut(m_inputs.firstMs, m_inputs.lastMs);
}

void tCut::begin()
{
    const auto isInSpan = [&](const tInputFile& file) {
        return file.firstMs < m_result.endMs && file.lastMs >= m_result.startMs;
    };
    const auto first = std::find_if(m_inputs.files.begin(), m_inputs.files.end(), isInSpan);
    m_extName = first != m_inputs.files.end() ? extNameOf(first->path) : "cut";
    m_about = sheetFrom(
        m_inputs, {m_result.startMs, m_result.endMs, [shift = m_options.shiftMs](const tInputFile&) { return shift; }});
    if (m_inputs.fineTimes)
        m_output.keepFineTimes();
    m_notesFromMs = m_result.startMs;
    startNextFileAt(m_result.startMs);
}

// Begins the file that has `timeMs`. Only a file that gets a record is made.
void tCut::startNextFileAt(std::uint64_t timeMs)
{
    const std::uint64_t every = m_options.everyMs;
    const std::uint64_t from = every == 0 ? m_result.startMs : timeMs - (timeMs - m_result.startMs) % every;
    m_nextFileMs = every == 0 || every > UINT64_MAX - from ? UINT64_MAX : from + every;
    tSheet about = m_about;
    if (m_output.records() != 0)
    {
        giveNotes(from);
        about.losses = {};
        about.streams.clear();
    }
    if (every != 0)
        about.notes.clear();
    m_output.startFileByTime(about, m_extName);
}

// The present one of several files gets the notes that no file before it has.
void tCut::giveNotes(std::uint64_t untilMs)
{
    const auto shift = static_cast<std::uint64_t>(m_options.shiftMs);
    if (m_options.everyMs != 0)
        m_output.about().notes = notesBetween(m_about.notes, m_notesFromMs + shift, untilMs + shift);
    m_notesFromMs = untilMs;
}

void tCut::carryStates()
{
    const auto includes = [&](const tStreamKey& key) { return m_chosen.includes(key); };
    storage::tDataFile file;
    const tInputFile* opened = nullptr;
    for (const tLastState& state : lastStates(m_inputs, m_result.startMs, includes, [&] { goOn(0.0); }))
    {
        if (state.input != std::exchange(opened, state.input) && !file.open(presentPath(opened->path, m_inputs.suffix)))
            opened = nullptr;
        std::string bytes;
        if (opened == nullptr || !file.read(state.record, bytes))
        {
            ++m_result.damaged;
            continue;
        }
        const int us = file.fineTime(state.record) < 0 ? storage::cUnknownFineTime : 0;
        m_output.add({m_result.startMs + static_cast<std::uint64_t>(m_options.shiftMs), us, bytes});
        m_output.about().carried = ++m_result.carried;
    }
}

void tCut::takeRecords()
{
    tOrderOptions options;
    options.fromMs = m_result.startMs;
    options.toMs = m_result.endMs;
    tRecordOrder order(m_inputs, options);
    for (tRecordRun run; order.next(run, cRunLimit);)
    {
        take(run);
        goOn(static_cast<double>(order.passed()) / static_cast<double>(std::max<std::uint64_t>(order.total(), 1)));
    }
    m_result.damaged += order.damaged();
    m_result.leftOut.insert(m_result.leftOut.end(), order.leftOut().begin(), order.leftOut().end());
}

void tCut::take(const tRecordRun& run)
{
    if (m_chosen.includesAll())
        put(run.from->file, run.from->input, run.first, run.count);
    else
        takeChosen(run);
}

// Neighbours that are chosen are put together.
void tCut::takeChosen(const tRecordRun& run)
{
    std::size_t first = run.first;
    const std::size_t end = run.first + run.count;
    for (std::size_t i = run.first; i < end; ++i)
    {
        const auto key = streamOf(run.from->file, i);
        m_result.damaged += key ? 0 : 1;
        if (key && m_chosen.includes(*key))
            continue;
        put(run.from->file, run.from->input, first, i - first);
        first = i + 1;
    }
    put(run.from->file, run.from->input, first, end - first);
}

void tCut::put(storage::tDataFile& file, const tInputFile& input, std::size_t first, std::size_t count)
{
    while (count != 0)
    {
        const std::size_t part = countBeforeNextFile(file, first, count);
        if (part == 0)
        {
            startNextFileAt(file.record(first).timeMs);
            continue;
        }
        countCarried(input, first, part);
        const std::uint64_t unread = m_output.copy(file, first, part, m_options.shiftMs);
        m_result.damaged += unread;
        m_taken += part - unread;
        first += part;
        count -= part;
    }
}

// What had been carried into the source stays carried, as long as nothing else is before it.
void tCut::countCarried(const tInputFile& input, std::size_t first, std::size_t count)
{
    if (m_output.records() != m_result.carried)
        return;
    const std::uint64_t there = readSheetSummary(input.path).carried;
    if (first >= there)
        return;
    m_result.carried += std::min<std::uint64_t>(count, there - first);
    m_output.about().carried = m_result.carried;
}

std::size_t tCut::countBeforeNextFile(const storage::tDataFile& file, std::size_t first, std::size_t count) const
{
    std::size_t part = 0;
    while (part < count && (m_nextFileMs == UINT64_MAX || file.record(first + part).timeMs < m_nextFileMs))
        ++part;
    return part;
}
}  // namespace

tNothingToCut::~tNothingToCut() = default;

tCutResult cutRecordings(const tCutOptions& options, const std::function<bool(double)>& goOn)
{
    return tCut(options, goOn).run();
}
}  // namespace recordings
