#include "KestovaRecordings/internal/recordorder.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace recordings
{
namespace
{
// Returns the numbers of a file's records in order of time; none if they are in that order already.
std::vector<std::uint32_t> timeOrder(const storage::tDataFile& file)
{
    const auto earlier = [&](std::uint32_t a, std::uint32_t b) {
        return file.record(a).timeMs < file.record(b).timeMs;
    };
    std::size_t i = 1;
    while (i < file.recordCount() && file.record(i - 1).timeMs <= file.record(i).timeMs)
        ++i;
    if (i >= file.recordCount())
        return {};
    std::vector<std::uint32_t> order(file.recordCount());
    std::iota(order.begin(), order.end(), 0u);
    std::stable_sort(order.begin(), order.end(), earlier);
    return order;
}
}  // namespace

// Files one after the other: a recording or, by time, one file.
class tRecordOrder::tTrack
{
public:
    tTrack(tRecordOrder& owner, std::size_t number) : m_owner(owner), m_number(number) {}

    void addFile(const tInputFile& file) { m_files.push_back(&file); }
    // Opens the first file that has a record of the span, and stands at that record. Returns false if there is none.
    bool open();
    // Returns the time at which the first file has to be opened.
    std::uint64_t dueMs() const
    {
        const tInputFile& file = *m_files[m_nextFile];
        return shifted(file, m_owner.m_options.byTime ? file.firstMs : file.startMs);
    }
    const tKey& key() const { return m_key; }
    tKey earliestKey() const { return {dueMs(), 0, 0}; }
    // Sets the run that begins here, and ends before `end` and after `limit` records. Returns false behind the last
    // record of the track.
    bool take(tRecordRun& run, std::size_t limit, const tKey& end);

private:
    bool openFile(const tInputFile& input);
    bool findNext();
    bool isInSpan(std::size_t place) const
    {
        const std::uint64_t timeMs = m_open->file.record(recordAt(place)).timeMs;
        return timeMs >= m_owner.m_options.fromMs && timeMs < m_owner.m_options.toMs;
    }
    std::size_t recordAt(std::size_t place) const { return m_order.empty() ? place : m_order[place]; }
    std::uint64_t shifted(const tInputFile& file, std::uint64_t timeMs) const
    {
        const auto& shift = m_owner.m_options.shiftMs;
        return timeMs + (shift ? static_cast<std::uint64_t>(shift(file)) : 0);
    }
    tKey keyAt(std::size_t place) const
    {
        const std::size_t record = recordAt(place);
        return {m_open->file.record(record).timeMs + m_shift, std::max(0, m_open->file.fineTime(record)), m_number};
    }

    tRecordOrder& m_owner;
    const std::size_t m_number;
    std::vector<const tInputFile*> m_files;
    std::size_t m_nextFile = 0;
    std::shared_ptr<tOpenInput> m_open;
    std::uint64_t m_shift = 0;           // of the open file, modulo 2^64
    std::vector<std::uint32_t> m_order;  // of its records by time; empty if they are as they are to be
    std::size_t m_next = 0, m_count = 0;
    tKey m_key;
};

bool tRecordOrder::tTrack::open()
{
    while (m_nextFile < m_files.size())
        if (openFile(*m_files[m_nextFile++]) && findNext())
            return true;
    m_open.reset();
    return false;
}

bool tRecordOrder::tTrack::openFile(const tInputFile& input)
{
    m_open = std::make_shared<tOpenInput>(input);
    std::string error;
    if (!m_open->file.open(presentPath(input.path, m_owner.m_inputs.suffix), &error))
    {
        m_owner.m_leftOut.push_back(recordings::leftOut(input.path, error, false));  // removed meanwhile
        m_owner.m_passed += input.records;
        return false;
    }
    m_owner.m_damaged += m_open->file.damagedCount();
    m_shift = shifted(input, 0);
    m_next = 0;
    m_count = m_open->file.recordCount();
    if (m_owner.m_options.byTime)
        m_order = timeOrder(m_open->file);
    return true;
}

// Moves to the next record of the span in the open file.
bool tRecordOrder::tTrack::findNext()
{
    const std::size_t from = m_next;
    while (m_next < m_count && !isInSpan(m_next))
        ++m_next;
    m_owner.m_passed += m_next - from;
    if (m_next == m_count)
        return false;
    m_key = keyAt(m_next);
    return true;
}

bool tRecordOrder::tTrack::take(tRecordRun& run, std::size_t limit, const tKey& end)
{
    const bool alone = end.timeMs == UINT64_MAX;
    run = {m_open, recordAt(m_next), 1};
    const std::size_t from = m_next++;
    while (run.count < limit && m_next < m_count && recordAt(m_next) == run.first + run.count && isInSpan(m_next) &&
           (alone || keyAt(m_next) < end))
    {
        ++run.count;
        ++m_next;
    }
    m_owner.m_passed += m_next - from;
    return findNext() || open();
}

tRecordOrder::tRecordOrder(const tInputFiles& inputs, tOrderOptions options)
    : m_inputs(inputs), m_options(std::move(options))
{
    std::vector<std::unique_ptr<tTrack>> tracks;
    std::size_t recording = SIZE_MAX;
    for (const tInputFile& file : inputs.files)
    {
        if (file.lastMs < m_options.fromMs || file.firstMs >= m_options.toMs)
            continue;
        if (m_options.byTime || file.recording != std::exchange(recording, file.recording))
            tracks.push_back(std::make_unique<tTrack>(*this, tracks.size()));
        tracks.back()->addFile(file);
        m_total += file.records;
    }
    m_waiting = std::move(tracks);
    std::stable_sort(m_waiting.begin(), m_waiting.end(),
                     [](const auto& a, const auto& b) { return a->dueMs() > b->dueMs(); });
}

tRecordOrder::~tRecordOrder() = default;

bool tRecordOrder::laterFirst(const std::unique_ptr<tTrack>& a, const std::unique_ptr<tTrack>& b)
{
    return b->key() < a->key();
}

void tRecordOrder::push(std::unique_ptr<tTrack> track)
{
    m_open.push_back(std::move(track));
    std::push_heap(m_open.begin(), m_open.end(), laterFirst);
}

// Opens the tracks that may have a record before the first one of those that are open.
void tRecordOrder::openDue()
{
    while (!m_waiting.empty() && (m_open.empty() || m_waiting.back()->dueMs() <= m_open.front()->key().timeMs))
    {
        std::unique_ptr<tTrack> due = std::move(m_waiting.back());
        m_waiting.pop_back();
        if (due->open())
            push(std::move(due));
    }
}

std::unique_ptr<tRecordOrder::tTrack> tRecordOrder::takeFirst()
{
    std::pop_heap(m_open.begin(), m_open.end(), laterFirst);
    std::unique_ptr<tTrack> first = std::move(m_open.back());
    m_open.pop_back();
    return first;
}

// Returns the key before which a run of the first track ends: that of the next track.
tRecordOrder::tKey tRecordOrder::limitOfRun() const
{
    tKey limit{UINT64_MAX, 0, 0};
    if (!m_open.empty())
        limit = m_open.front()->key();
    if (!m_waiting.empty())
        limit = std::min(limit, m_waiting.back()->earliestKey());
    return limit;
}

bool tRecordOrder::next(tRecordRun& run, std::size_t limit)
{
    openDue();
    if (m_open.empty())
        return false;
    std::unique_ptr<tTrack> first = takeFirst();
    if (first->take(run, limit, limitOfRun()))
        push(std::move(first));
    return true;
}
}  // namespace recordings
