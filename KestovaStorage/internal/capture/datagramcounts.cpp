#include "KestovaStorage/internal/capture/datagramcounts.h"

namespace pcap
{
namespace
{
std::uint64_t lengthKey(std::uint32_t stream, std::uint32_t length)
{
    return std::uint64_t{stream} << 32 | length;
}
}  // namespace

void tDatagramCounts::clear()
{
    m_streams.clear();
    m_lengths.clear();
    m_changedStreams.clear();
    m_changedLengths.clear();
    m_streamIndex.clear();
    m_lengthIndex.clear();
    m_lastStream = 0;
    m_touched = 0;
}

const tCountedStream& tDatagramCounts::count(tDestination key, std::uint32_t length, eMessageKind kind)
{
    ++m_touched;
    const std::uint32_t place = m_lastStream = streamOf(key);
    const std::uint32_t lengthPlace = lengthOf(place, length);
    countLength(lengthPlace);
    tCountedStream& stream = m_streams[place];
    ++stream.count;
    stream.touched = m_touched;
    stream.lastLength = lengthPlace;
    stream.kinds = static_cast<std::uint16_t>(stream.kinds | 1U << static_cast<unsigned>(kind));
    if (!stream.changed)
        m_changedStreams.push_back(place);
    stream.changed = true;
    return stream;
}

std::uint32_t tDatagramCounts::streamOf(tDestination key)
{
    if (m_lastStream < m_streams.size() && m_streams[m_lastStream].key == key)
        return m_lastStream;
    const auto fresh = static_cast<std::uint32_t>(m_streams.size());
    const std::uint32_t place = m_streamIndex.placeOf(key, fresh, [this](auto at) { return m_streams[at].key; });
    if (place == fresh)
        m_streams.push_back({key, 0, 0, UINT32_MAX, 0, trafficTo(key), false});
    return place;
}

std::uint32_t tDatagramCounts::lengthOf(std::uint32_t stream, std::uint32_t length)
{
    const std::uint32_t last = m_streams[stream].lastLength;
    if (last < m_lengths.size() && m_lengths[last].length == length)
        return last;
    const auto fresh = static_cast<std::uint32_t>(m_lengths.size());
    const auto keyAt = [this](std::uint32_t at) { return lengthKey(m_lengths[at].stream, m_lengths[at].length); };
    const std::uint32_t place = m_lengthIndex.placeOf(lengthKey(stream, length), fresh, keyAt);
    if (place == fresh)
        m_lengths.push_back({0, stream, length, 0, false});
    return place;
}

void tDatagramCounts::countLength(std::uint32_t place)
{
    tCountedLength& length = m_lengths[place];
    ++length.occurrences;
    length.touched = m_touched;
    if (!length.changed)
        m_changedLengths.push_back(place);
    length.changed = true;
}

void tDatagramCounts::clearChanges()
{
    for (const std::uint32_t place : m_changedStreams)
        m_streams[place].changed = false;
    for (const std::uint32_t place : m_changedLengths)
        m_lengths[place].changed = false;
    m_changedStreams.clear();
    m_changedLengths.clear();
}
}  // namespace pcap
