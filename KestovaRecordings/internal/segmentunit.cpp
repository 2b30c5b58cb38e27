#include "KestovaRecordings/internal/segmentunit.h"

namespace recordings
{
using storage::tRawRecord;
using storage::tSegmentView;

namespace
{
constexpr std::uint64_t cGroupBytes = 64 * 1024;  // as stored; decoded they may take eight times as much
}

tSegmentUnit::tSegmentUnit(const storage::tRawDataFile& file, const tExaminedIndex& index)
    : m_file(file), m_index(index)
{}

void tSegmentUnit::release()
{
    m_reader.reset();
    m_bytes = {};
    m_segments.clear();
}

void tSegmentUnit::load(std::size_t first, std::size_t last)
{
    if (!m_reader)
        m_reader = std::make_unique<storage::tRawSegments>(m_file);
    m_first = first;
    m_segments.assign(last - first, {});
    if (m_file.isCompressed() || !loadAtOnce(first, last))
        loadInGroups(first, last);
}

// Plain segments that lie back to back.
bool tSegmentUnit::loadAtOnce(std::size_t first, std::size_t last)
{
    m_records.clear();
    std::uint64_t end = 0;
    for (std::size_t i = first; i < last; ++i)
    {
        const tRawRecord record = m_file.record(m_index.slots[i]);
        if (!isReadable(i) || (i != first && record.firstByte != end))
            return false;
        m_records.push_back(record);
        end = record.firstByte + record.bytes();
    }
    m_views.resize(m_records.size());
    if (!m_reader->read(m_records.data(), m_records.size(), m_views.data()))
        return false;
    for (std::size_t i = 0; i < m_views.size(); ++i)
        m_segments[i] = {m_views[i].bytes, m_views[i].len};
    return true;
}

void tSegmentUnit::loadInGroups(std::size_t first, std::size_t last)
{
    m_bytes.clear();
    m_kept.clear();
    for (std::size_t i = first; i < last;)
    {
        const std::size_t begin = i;
        m_records.clear();
        for (std::uint64_t bytes = 0; i < last && isReadable(i) && (bytes < cGroupBytes || i == begin); ++i)
        {
            const tRawRecord record = m_file.record(m_index.slots[i]);
            const bool isInLine =
                m_records.empty() || (record.firstByte >= m_records.back().firstByte &&
                                      record.firstByte <= m_records.back().firstByte + m_records.back().bytes());
            if (!isInLine)
                break;
            m_records.push_back(record);
            bytes += record.bytes();
        }
        keepGroup(begin);
        i += m_records.empty() ? 1 : 0;
    }
    for (const tKept& kept : m_kept)
        m_segments[kept.record - m_first] = {m_bytes.data() + kept.begin, kept.len};
}

// Reads m_records, the first of which is record `first`; one by one if they cannot be read together.
void tSegmentUnit::keepGroup(std::size_t first)
{
    m_views.resize(m_records.size());
    if (m_reader->read(m_records.data(), m_records.size(), m_views.data()))
    {
        for (std::size_t i = 0; i < m_records.size(); ++i)
            keep(first + i, m_views[i]);
        return;
    }
    for (std::size_t i = 0; i < m_records.size(); ++i)
    {
        tSegmentView segment{};
        if (m_reader->read(&m_records[i], 1, &segment))
            keep(first + i, segment);
    }
}

void tSegmentUnit::keep(std::size_t record, const tSegmentView& segment)
{
    m_kept.push_back({record, m_bytes.size(), segment.len});
    m_bytes.insert(m_bytes.end(), segment.bytes, segment.bytes + segment.len);
    if (m_bytes.empty())
        m_bytes.reserve(1);  // a segment without bytes has a place, too
}
}  // namespace recordings
