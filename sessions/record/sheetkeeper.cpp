#include "sessions/record/sheetkeeper.h"

#include <algorithm>
#include <exception>
#include <span>
#include <string_view>
#include <unistd.h>
#include <utility>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/sheetbuilder.h"
#include "KestovaStorage/companions.h"
#include "KestovaStorage/datafileconverter.h"
#include "KestovaStorage/packageview.h"
#include "sessions/record/gpstime.h"
#include "sessions/record/keptsheet.h"

namespace session
{
using namespace recordings;

namespace
{
using tSteady = tWorker::tClock;

constexpr std::size_t cSegmentsAtOnce = 64;  // they are looked at twice, in the cache

std::uint64_t nowMs()
{
    using namespace std::chrono;
    return static_cast<std::uint64_t>(duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count());
}

// Returns the time in the message of a sensor; the first byte rules almost all others out.
std::optional<std::uint64_t> gpsTimeOf(const storage::tWrittenSegment& segment)
{
    constexpr std::size_t cLongest = 4096;
    if (segment.len <= cPackageOverhead || segment.len > cLongest || segment.bytes[cPackageHeadSize] != '$')
        return std::nullopt;
    const tRadarMsgPackage* const package = asWholePackage(segment.bytes, segment.len);
    if (package == nullptr)
        return std::nullopt;
    return gpsTimeIn({segment.bytes + cPackageHeadSize, package->msgLen});
}

double receivedMs(const storage::tWrittenSegment& segment)
{
    const double fine = segment.us != storage::cNoFineTime ? segment.us / 1000.0 : 0.0;
    return static_cast<double>(segment.timeMs) + fine;
}

// Sums of heads and fine times are of what is on the disk.
void seal(tSheet& sheet, const std::string& path)
try
{
    sealSheet(sheet, path);
    if (::access(storage::fineTimesName(path).c_str(), F_OK) != 0)
        sheet.fineCrc32c.reset();
}
catch (const tFailure&)
{
    sheet.finished = true;  // without the sum of its heads
}
}  // namespace

// A file of the recording. Its sheet on the disk belongs to the worker.
struct tSheetKeeper::tFile
{
    tFile(const char* name, const storage::tFileId& fileId) : path(name), id(sheetId(fileId)), onDisk(path) {}

    const std::string path, id;
    tSheetBuilder builder;
    std::uint64_t diskLost = 0;
    std::vector<tClockStep> steps;
    tClockOffset offset;
    bool begun = false;  // its first sheet is being written
    tKeptSheet onDisk;
};

tSheetKeeper::tSheetKeeper(tSheet facts, std::chrono::milliseconds period)
    : m_period(period), m_facts(std::move(facts)), m_wire(spokeLayoutsOf(m_facts))
{}

tSheetKeeper::~tSheetKeeper()
{
    finish();
}

void tSheetKeeper::describe(const std::string& interface)
{
    const auto held = m_worker.lock();
    m_facts.interface = interface;
}

void tSheetKeeper::start()
{
    constexpr std::chrono::seconds cLongest{5};
    m_started = m_worker.start([this] { writeOn(); });
    auto held = m_worker.lock();
    m_worker.waitUntil(held, tSteady::now() + cLongest, [this] { return m_firstWritten; });
}

void tSheetKeeper::update(const tRecorderState& state)
{
    const auto held = m_worker.lock();
    for (const auto& [key, count] : state.discarded)
        m_dropped[key] = std::max(m_dropped[key], count);
    m_lost = state.lost;
    m_joins.update(state, nowMs());
    const auto step = m_steps.update(tClocks::now());
    if (!step || m_file == nullptr)
        return;
    m_file->steps.push_back(*step);
    m_file->offset.stepped(step->stepMs);
}

void tSheetKeeper::finish()
{
    m_worker.stop();
    if (!std::exchange(m_started, false))
        return;
    writeWhatIsDue();
    addLateLosses();
}

std::string tSheetKeeper::takeProblem()
{
    const auto held = m_worker.lock();
    return std::exchange(m_problem, {});
}

std::optional<double> tSheetKeeper::clockOffsetMs() const
{
    const auto held = m_worker.lock();
    return m_file != nullptr ? m_file->offset.offsetMs() : std::nullopt;
}

tMissingCounts tSheetKeeper::missingOnWire() const
{
    const auto held = m_worker.lock();
    tMissingCounts missing = m_missingBefore;
    for (const auto& [key, count] : m_wire.missing())
        missing[key] += count;
    return missing;
}

void tSheetKeeper::FileStarted(const char* path, const storage::tFileId& id)
{
    auto file = std::make_shared<tFile>(path, id);
    m_worker.wake([&] { m_file = std::move(file); });
}

void tSheetKeeper::SegmentsWritten(const storage::tWrittenSegment* segments, std::size_t count)
{
    const auto held = m_worker.lock();
    if (m_file == nullptr)
        return;
    for (std::size_t done = 0; done < count; done += cSegmentsAtOnce)
    {
        const std::span some(segments + done, std::min(cSegmentsAtOnce, count - done));
        m_file->builder.addWritten(some.data(), some.size());
        for (const storage::tWrittenSegment& segment : some)
        {
            m_wire.add({segment.bytes, segment.len});
            if (const auto gpsMs = gpsTimeOf(segment))
                m_file->offset.add(receivedMs(segment), *gpsMs);
        }
    }
}

void tSheetKeeper::SegmentsLost(std::uint64_t count)
{
    const auto held = m_worker.lock();
    m_diskLost += count;
    if (m_file != nullptr)
        m_file->diskLost += count;
}

void tSheetKeeper::FileFinished(const char* path)
{
    tFinished finished;
    {
        const auto held = m_worker.lock();
        if (m_file == nullptr)
            return;
        finished.file = std::exchange(m_file, nullptr);
        finished.sheet = composed(*finished.file, nowMs());
        m_lastFile = path;
        accountFor();
    }
    seal(finished.sheet, path);
    m_worker.wake([&] { m_finished.push_back(std::move(finished)); });
}

void tSheetKeeper::FileCompressed(const char*, const char* compressedPath)
{
    m_worker.wake([&] { m_compressed.emplace_back(compressedPath); });
}

tSheet tSheetKeeper::composed(const tFile& file, std::uint64_t nowMs) const
{
    tSheet sheet = m_facts;
    sheet.id = file.id;
    addLosses(sheet);
    sheet.losses.diskLost = file.diskLost;
    sheet.losses.joinsLost = m_joins.ofFile(nowMs);
    sheet.clock.steps = file.steps;
    sheet.clock.offsetMs = file.offset.offsetMs();
    sheet.clock.driftPpm = file.offset.driftPpm();
    setMissing(sheet, m_wire.missing());
    file.builder.fill(sheet);
    return sheet;
}

// What no finished file accounts for.
void tSheetKeeper::addLosses(tSheet& sheet) const
{
    for (const auto& [key, count] : m_dropped)
    {
        const auto before = m_droppedBefore.find(key);
        const std::uint64_t dropped = count - (before != m_droppedBefore.end() ? before->second : 0);
        if (dropped == 0)
            continue;
        sheet.losses.kernelDropped += dropped;
        tSheetStream& row = sheet.streams.emplace_back();
        row.key = key;
        row.kernelDropped = dropped;
    }
    sheet.losses.queueLost = queueLost() - std::min(queueLost(), m_queueLostBefore);
}

// Messages that are lost and were not lost by the disk.
std::uint64_t tSheetKeeper::queueLost() const
{
    return m_lost - std::min(m_lost, m_diskLost);
}

void tSheetKeeper::accountFor()
{
    for (const auto& [key, count] : m_wire.missing())
        m_missingBefore[key] += count;
    m_wire.startAnew();
    m_droppedBefore = m_dropped;
    m_queueLostBefore = queueLost();
    m_joins.nextFile(nowMs());
}

bool tSheetKeeper::hasWork() const
{
    return !m_finished.empty() || !m_compressed.empty() || (m_file != nullptr && !m_file->begun);
}

void tSheetKeeper::writeOn()
{
    while (m_worker.running())
    {
        {
            auto held = m_worker.lock();
            m_worker.waitUntil(held, m_next, [this] { return hasWork(); });
        }
        if (m_worker.running())
            writeWhatIsDue();
    }
}

// In this order: the next file takes from the one before whether it is kept.
void tSheetKeeper::writeWhatIsDue()
{
    for (tFinished finished; take(m_finished, finished);)
        writeFinished(std::move(finished));
    for (std::string compressed; take(m_compressed, compressed);)
        attempt([&] { refreshSheet(compressed); });
    writePresent();
}

void tSheetKeeper::writeFinished(tFinished finished)
{
    attempt([&] { finished.file->onDisk.write(std::move(finished.sheet), m_kept); });
    m_kept = finished.file->onDisk.kept();
}

void tSheetKeeper::writePresent()
{
    tFilePtr file;
    tSheet sheet;
    {
        const auto held = m_worker.lock();
        const bool due = m_file != nullptr && (!m_file->begun || tSteady::now() >= m_next);
        if (!due && tSteady::now() >= m_next)
            m_next = tSteady::now() + m_period;
        if (!due)
            return;
        file = m_file;
        file->begun = true;
        sheet = composed(*file, nowMs());
    }
    m_next = tSteady::now() + m_period;
    attempt([&] { file->onDisk.write(std::move(sheet), m_kept); });
    m_worker.wake([this] { m_firstWritten = true; });
}

// Messages may be lost with the end of the last file, and counted after it.
void tSheetKeeper::addLateLosses()
{
    tSheet late;
    std::string path;
    {
        const auto held = m_worker.lock();
        addLosses(late);
        path = m_lastFile;
        accountFor();
    }
    if (late.losses.sum() == 0 || path.empty())
        return;
    if (::access(path.c_str(), F_OK) != 0)
        path = storage::tDataFileConverter::CompressedName(path, ".data");
    attempt([&] {
        const tSheetLock lock(path);
        tFoundSheet found = readSheet(path);
        if (!found)
            return;
        found.sheet.losses.kernelDropped += late.losses.kernelDropped;
        found.sheet.losses.queueLost += late.losses.queueLost;
        writeSheet(path, found.sheet);
    });
}

template <typename tQueue>
bool tSheetKeeper::take(tQueue& queue, typename tQueue::value_type& first)
{
    const auto held = m_worker.lock();
    if (queue.empty())
        return false;
    first = std::move(queue.front());
    queue.pop_front();
    return true;
}

// A problem that lasts is one.
template <typename tWork>
void tSheetKeeper::attempt(tWork work)
{
    std::string problem;
    try
    {
        work();
    }
    catch (const std::exception& error)
    {
        problem = error.what();
    }
    const auto held = m_worker.lock();
    if (problem != m_lastProblem && m_problem.empty())
        m_problem = problem;
    m_lastProblem = problem;
}
}  // namespace session
