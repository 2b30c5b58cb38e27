#include "KestovaRecordings/merge.h"

#include <algorithm>
#include <set>
#include <utility>
#include <xxhash.h>

#include "KestovaRecordings/internal/inputfiles.h"
#include "KestovaRecordings/internal/recordorder.h"
#include "KestovaRecordings/internal/repetitions.h"
#include "KestovaRecordings/internal/sourcesheets.h"
#include "KestovaRecordings/packagecontents.h"
#include "KestovaStorage/datafileformat.h"

namespace recordings
{
namespace
{
constexpr std::size_t cRunLimit = 1024;  // records between two looks at `goOn`

// Of group and payload; a segment that is no package is its own payload.
tContentHash hashOf(std::string_view segment)
{
    const auto package = viewPackage(segment);
    const std::string_view payload = package ? package->payload : segment;
    const std::uint64_t group = package ? std::uint64_t{1} << 48 | std::uint64_t{package->ip} << 16 | package->port : 0;
    const XXH128_hash_t hash = XXH3_128bits_withSeed(payload.data(), payload.size(), group);
    return {hash.low64, hash.high64};
}

class tMerge
{
public:
    tMerge(const tMergeOptions& options, const std::function<bool(double)>& goOn)
        : m_options(options), m_goOn(goOn), m_output(options.folder), m_repetitions(options.toleranceMs)
    {}

    tMergeResult run();

private:
    std::int64_t shiftOf(const tInputFile& file) const
    {
        return file.argument < m_options.shifts.size() ? m_options.shifts[file.argument] : 0;
    }
    void requireTimes() const;
    bool takeRecords();
    void take(const tRecordRun& run);
    void examine(const tRecordRun& run);
    void putDecided();
    void put(tOpenInput& from, std::size_t first, std::size_t count);

    const tMergeOptions& m_options;
    const std::function<bool(double)>& m_goOn;
    tRecordingOutput m_output;
    tInputFiles m_inputs;
    tRepetitions m_repetitions;
    tMergeResult m_result;
};

tMergeResult tMerge::run()
{
    m_inputs = findInputs(m_options.paths, m_options.suffix);
    m_result.leftOut = m_inputs.leftOut;
    requireTimes();
    const auto shift = [this](const tInputFile& file) { return shiftOf(file); };
    if (m_inputs.fineTimes)
        m_output.keepFineTimes();
    m_output.startFileByTime(sheetFrom(m_inputs, {0, UINT64_MAX, shift}), extNameOf(m_inputs.files.front().path));
    m_result.complete = takeRecords();
    if (!m_result.complete)
        return std::move(m_result);
    m_result.records = m_output.records();
    m_result.bytes = m_output.bytes();
    m_result.files = m_output.commit();
    return std::move(m_result);
}

void tMerge::requireTimes() const
{
    constexpr auto cLimit = static_cast<std::int64_t>(storage::cTimeLimit);
    for (const tInputFile& file : m_inputs.files)
    {
        const std::int64_t shift = shiftOf(file);
        if (shift <= -static_cast<std::int64_t>(file.firstMs) ||
            shift >= cLimit - static_cast<std::int64_t>(file.lastMs))
            throw tFailure(file.path + ": the shift moves records out of the times that a recording can have");
    }
}

bool tMerge::takeRecords()
{
    tOrderOptions options;
    options.byTime = true;
    options.shiftMs = [this](const tInputFile& file) { return shiftOf(file); };
    tRecordOrder order(m_inputs, options);
    const auto goesOn = [&] {
        return m_goOn(static_cast<double>(order.passed()) /
                      static_cast<double>(std::max<std::uint64_t>(order.total(), 1)));
    };
    for (tRecordRun run; order.next(run, cRunLimit);)
    {
        take(run);
        if (!goesOn())
            return false;
    }
    m_repetitions.end();
    putDecided();
    m_result.damaged += order.damaged();
    m_result.leftOut.insert(m_result.leftOut.end(), order.leftOut().begin(), order.leftOut().end());
    return true;
}

void tMerge::take(const tRecordRun& run)
{
    if (!m_options.unique)
        return put(*run.from, run.first, run.count);
    examine(run);
    putDecided();
}

void tMerge::examine(const tRecordRun& run)
{
    const auto shift = static_cast<std::uint64_t>(shiftOf(run.from->input));
    for (std::size_t i = run.first; i < run.first + run.count; ++i)
    {
        std::size_t len = 0;
        const char* const bytes = run.from->file.view(i, len);
        if (bytes == nullptr)
        {
            ++m_result.damaged;
            continue;
        }
        m_repetitions.add(
            {run.from, i, run.from->input.recording, run.from->file.record(i).timeMs + shift, hashOf({bytes, len})});
    }
}

// Neighbours that stay are put together.
void tMerge::putDecided()
{
    tRecordRun run;
    for (tCandidate candidate; m_repetitions.next(candidate);)
    {
        m_result.repeated += candidate.repeats ? 1 : 0;
        if (candidate.repeats)
            continue;
        if (candidate.from != run.from || candidate.record != run.first + run.count)
        {
            if (run.from)
                put(*run.from, run.first, run.count);
            run = {candidate.from, candidate.record, 0};
        }
        ++run.count;
    }
    if (run.from)
        put(*run.from, run.first, run.count);
}

void tMerge::put(tOpenInput& from, std::size_t first, std::size_t count)
{
    m_result.damaged += m_output.copy(from.file, first, count, shiftOf(from.input));
}
}  // namespace

tMergeResult mergeRecordings(const tMergeOptions& options, const std::function<bool(double)>& goOn)
{
    return tMerge(options, goOn).run();
}
}  // namespace recordings
