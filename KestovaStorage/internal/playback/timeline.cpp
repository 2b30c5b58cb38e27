#include "KestovaStorage/internal/playback/timeline.h"

#include <algorithm>
#include <map>
#include <optional>
#include <utility>

#include "KestovaStorage/internal/playback/playkey.h"

namespace storage
{
namespace
{
constexpr std::size_t cCancelPeriod = 4096;

bool earlier(const tIndexSlot& a, const tIndexSlot& b)
{
    return timeOf(a) < timeOf(b);
}

// The times of a file, and how many of its records have the same one at most.
struct tTimes
{
    std::uint64_t first, last;
    std::size_t longestRun;
};

tTimes timesOf(const tTimelineFile& file)
{
    if (file.sorted)
        return {file.firstTimeSorted(), file.lastTimeSorted(), file.longestRun};
    std::vector<std::uint64_t> times(file.size());
    std::transform(file.index.begin(), file.index.end(), times.begin(), timeOf);
    std::sort(times.begin(), times.end());
    std::size_t longest = 0;
    for (auto from = times.begin(); from != times.end();)
    {
        const auto to = std::upper_bound(from, times.end(), *from);
        longest = std::max(longest, static_cast<std::size_t>(to - from));
        from = to;
    }
    return {times.front(), times.back(), longest};
}

// Keys in use, as ranges: the first free key from a given one on is the end of the range that holds it.
class tUsedKeys
{
public:
    // Takes the first free key not below `key`; returns no value if the keys have run out.
    std::optional<std::uint64_t> take(std::uint64_t key)
    {
        auto after = m_ranges.upper_bound(key);  // first range that begins behind `key`
        auto range = after;
        if (after != m_ranges.begin() && std::prev(after)->second >= key)
            range = std::prev(after);
        else
            range = m_ranges.emplace_hint(after, key, key);
        const std::uint64_t taken = range->second;
        if (taken == UINT64_MAX)
            return std::nullopt;
        range->second = taken + 1;
        if (after != m_ranges.end() && after->first == range->second)
        {
            range->second = after->second;
            m_ranges.erase(after);
        }
        return taken;
    }

private:
    std::map<std::uint64_t, std::uint64_t> m_ranges;  // first key in use to the free key behind the range
};
}  // namespace

void tTimeline::build(std::vector<tTimelineFile> files, const tCancelled& cancelled, tReadBlock readBlock)
{
    clear();
    m_files = std::move(files);
    m_readBlock = std::move(readBlock);
    m_keysWritten = mayOverflow();
    if (m_keysWritten)
        writeKeysOut(cancelled);
    else
        sortFiles();
    measure();
}

void tTimeline::clear()
{
    *this = tTimeline();
}

// Returns whether some millisecond might hold more segments than it has keys: files whose times overlap may have their
// longest runs in the same one.
bool tTimeline::mayOverflow() const
{
    struct tEdge
    {
        std::uint64_t time;
        bool end;
        std::size_t run;
    };
    std::vector<tEdge> edges;
    for (const tTimelineFile& file : m_files)
    {
        if (file.size() == 0)
            continue;
        const tTimes times = timesOf(file);
        edges.push_back({times.first, false, times.longestRun});
        edges.push_back({times.last, true, times.longestRun});
    }
    std::sort(edges.begin(), edges.end(),
              [](const tEdge& a, const tEdge& b) { return a.time != b.time ? a.time < b.time : a.end < b.end; });
    std::size_t together = 0, most = 0;
    for (const tEdge& edge : edges)
    {
        together = edge.end ? together - edge.run : together + edge.run;
        most = std::max(most, together);
    }
    return most > cKeysPerMs;
}

void tTimeline::sortFiles()
{
    for (tTimelineFile& file : m_files)
    {
        if (!file.sorted)
            std::stable_sort(file.index.begin(), file.index.end(), earlier);
    }
}

// Gives every segment its key in the order of opening: neighbours of equal time count up, and a key in use is replaced
// by the next free one.
void tTimeline::writeKeysOut(const tCancelled& cancelled)
{
    tUsedKeys used;
    tTimelineRecords records(m_files, m_readBlock);
    for (std::uint32_t file = 0; file < m_files.size(); ++file)
    {
        std::uint64_t run = 0, before = 0;
        for (std::uint32_t i = 0; i < m_files[file].size(); ++i)
        {
            if (i % cCancelPeriod == 0 && cancelled())
                return;
            const std::uint64_t time = timeOf(records.at(file, i));
            run = i != 0 && time == before ? run + 1 : 0;
            before = time;
            if (run > UINT64_MAX - keyOfTime(time))
                continue;  // behind the last millisecond there are no keys
            if (const auto key = used.take(keyOfTime(time) + run))
                m_keys.push_back({*key, file, i});
        }
        records.release(file);
    }
    std::sort(m_keys.begin(), m_keys.end(),
              [](const tTimelineSegment& a, const tTimelineSegment& b) { return a.key < b.key; });
}

void tTimeline::measure()
{
    if (m_keysWritten)
    {
        m_size = m_keys.size();
        m_firstKey = m_keys.empty() ? 0 : m_keys.front().key;
        m_lastKey = m_keys.empty() ? 0 : m_keys.back().key;
        return;
    }
    std::uint64_t first = UINT64_MAX;
    std::uint64_t last = 0;
    for (const tTimelineFile& file : m_files)
    {
        m_size += file.size();
        if (file.size() == 0)
            continue;
        first = std::min(first, file.firstTimeSorted());
        last = std::max(last, file.lastTimeSorted());
    }
    if (m_size == 0)
        return;
    std::uint64_t atLast = 0;
    tTimelineRecords records(m_files, m_readBlock);
    for (std::uint32_t file = 0; file < m_files.size(); ++file)
    {
        if (m_files[file].size() != 0 && m_files[file].lastTimeSorted() == last)
            atLast += m_files[file].size() - records.firstNotBefore(file, last);
    }
    m_firstKey = keyOfTime(first);
    m_lastKey = keyOfTime(last) + atLast - 1;
}

tTimeline::tCursor::tCursor(const tTimeline& timeline, std::uint64_t startKey)
    : m_timeline(&timeline), m_records(timeline.m_files, timeline.m_readBlock)
{
    if (timeline.m_keysWritten)
    {
        const auto start = std::partition_point(timeline.m_keys.begin(), timeline.m_keys.end(),
                                                [=](const tTimelineSegment& s) { return s.key < startKey; });
        m_place = static_cast<std::size_t>(start - timeline.m_keys.begin());
        return;
    }
    const std::uint64_t time = timeOfKey(startKey);
    for (std::uint32_t file = 0; file < timeline.m_files.size(); ++file)
    {
        const tTimelineFile& one = timeline.m_files[file];
        if (one.size() == 0 || one.lastTimeSorted() < time)
            continue;
        const std::size_t record = std::min(m_records.firstNotBefore(file, time), one.size() - 1);
        m_heads.push_back({m_records.timeAt(file, record), file, static_cast<std::uint32_t>(record)});
    }
    std::make_heap(m_heads.begin(), m_heads.end(), std::greater<>());
    // The start may lie behind some segments of its millisecond.
    const std::uint64_t before = startKey & (cKeysPerMs - 1);
    tTimelineSegment skipped;
    while (m_sameTime < before && !m_heads.empty() && m_heads.front().time == time)
        nextMerged(skipped);
}

bool tTimeline::tCursor::next(tTimelineSegment& segment)
{
    if (!m_timeline->m_keysWritten)
        return nextMerged(segment);
    if (m_place == m_timeline->m_keys.size())
        return false;
    segment = m_timeline->m_keys[m_place++];
    m_record = m_records.at(segment.file, segment.record);
    return true;
}

bool tTimeline::tCursor::nextMerged(tTimelineSegment& segment)
{
    if (m_heads.empty())
        return false;
    const tHead head = m_heads.front();
    m_sameTime = head.time == m_time ? m_sameTime : 0;
    m_time = head.time;
    segment = {keyOfTime(head.time) + m_sameTime++, head.file, head.record};
    m_record = m_records.at(head.file, head.record);
    advance(head);
    return true;
}

// Puts the file's next record in the place of `head`, the top. While it stays the earliest (files that follow each
// other), the heap is left alone.
void tTimeline::tCursor::advance(tHead head)
{
    const std::size_t size = m_timeline->m_files[head.file].size();
    ++head.record;
    if (head.record < size)
    {
        head.time = m_records.timeAt(head.file, head.record);
        const bool staysLeft = m_heads.size() < 2 || !(head > m_heads[1]);
        const bool staysRight = m_heads.size() < 3 || !(head > m_heads[2]);
        if (staysLeft && staysRight)
        {
            m_heads.front() = head;
            return;
        }
    }
    std::pop_heap(m_heads.begin(), m_heads.end(), std::greater<>());
    if (head.record == size)
    {
        m_records.release(head.file);
        m_heads.pop_back();
        return;
    }
    m_heads.back() = head;
    std::push_heap(m_heads.begin(), m_heads.end(), std::greater<>());
}
}  // namespace storage
