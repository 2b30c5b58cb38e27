#include "sessions/export/exportsession.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/packagecontents.h"
#include "KestovaRecordings/survey.h"
#include "KestovaRecordings/timerange.h"

namespace session
{
using namespace recordings;

namespace
{
constexpr std::uint64_t cStep = 1024;  // records between two looks at `goOn`
constexpr std::size_t cRun = 128;      // that are read together

std::uint64_t wholeMs(double ms)
{
    return ms <= 0 ? 0 : static_cast<std::uint64_t>(std::ceil(ms));
}
}  // namespace

tExportSession::tExportSession(const tExportOptions& options)
    : m_options(options), m_found(findAllRecordings(options.paths, options.suffix)),
      m_records(m_found.files, options.suffix)
{
    requireRecording();
    requireStreams(m_found.files, options.streams);
    limit();
    m_exporter = options.open(m_found.files);
}

// A file among others that is none is left out; where there is no other, nothing can be done.
void tExportSession::requireRecording() const
{
    if (m_records.files() != 0)
        return;
    const std::vector<tLeftOut> all = leftOut();
    if (all.size() == 1)
        throw tFailure(all.front().path + ": " + all.front().reason);
    throw tFailure("none of " + std::to_string(all.size()) + " files and folders holds a recording; the first is " +
                   all.front().path + ": " + all.front().reason);
}

void tExportSession::limit()
{
    if (!m_options.start && !m_options.end)
        return;
    const tTimeRange recording(m_found.files, m_options.suffix);
    const auto placeOf = [&](const std::optional<tMoment>& moment, std::uint64_t otherwise) {
        return moment ? wholeMs(moment->resolve(recording.firstMs(), recording.lastMs())) : otherwise;
    };
    const std::uint64_t fromMs = placeOf(m_options.start, 0), endMs = placeOf(m_options.end, UINT64_MAX);
    if (fromMs >= endMs || fromMs > recording.lastMs() || endMs <= recording.firstMs())
        throw tFailure("none of the records is in the span of --start and --end");
    m_records.startAt(fromMs);
    m_records.endAt(endMs);
}

std::vector<tLeftOut> tExportSession::leftOut() const
{
    std::vector<tLeftOut> all = m_found.leftOut;
    for (tLeftOut file : m_records.leftOut())
    {
        file.asked = std::find(m_options.paths.begin(), m_options.paths.end(), file.path) != m_options.paths.end();
        all.push_back(std::move(file));
    }
    return all;
}

void tExportSession::run(const std::function<bool(double)>& goOn)
{
    std::array<tRecordingRecord, cRun> records;
    std::uint64_t looked = 0;
    const auto total = static_cast<double>(m_records.records());
    for (std::size_t count = 0; (count = m_records.nextRun(records.data(), cRun)) != 0;)
    {
        if (m_records.passed() >= looked && !goOn(static_cast<double>(m_records.passed()) / total))
            throw tFailure("interrupted; " + m_options.output +
                           (m_options.isStream ? " has a part of the recording only" : " was not written"));
        looked = std::max(looked, m_records.passed() / cStep * cStep + cStep);
        for (std::size_t i = 0; i < count; ++i)
            write(records[i]);
    }
    m_exporter->finish();
}

void tExportSession::write(const tRecordingRecord& record)
{
    const auto package = viewPackage(record.bytes);
    if (package && !m_options.streams.includes(package->info.rwType))
        return;
    const std::uint64_t timeUs = record.timeMs * 1000 + static_cast<std::uint64_t>(std::max(0, record.fineTime));
    if (package && m_exporter->take({*package, record.timeMs, timeUs}))
        ++m_packages;
    else
        ++m_withoutPlace;
}
}  // namespace session
